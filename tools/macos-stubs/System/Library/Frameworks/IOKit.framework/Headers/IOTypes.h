#ifndef MACOS_STUBS_IOTYPES_H
#define MACOS_STUBS_IOTYPES_H

// Stand-in: the object handles and result codes that the framework's headers share.

#include <mach/kern_return.h>
#include <mach/port.h>
#include <stdint.h>

typedef kern_return_t IOReturn;
typedef uint32_t IOOptionBits;

typedef mach_port_t io_object_t;
typedef io_object_t io_iterator_t;
typedef io_object_t io_registry_entry_t;

#define IO_OBJECT_NULL ((io_object_t)0)

#endif
