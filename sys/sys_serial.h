#ifndef SYS_SYS_SERIAL_H
#define SYS_SYS_SERIAL_H

// Serial ports as raw byte channels, and the list of the machine's USB serial ports.
//
// A port is named by its device below /dev, without "/dev/", exactly as SYS_COM_Enumerate gives it. An open port has 8
// data bits, no parity and one stop bit, no flow control, and passes every byte as it is: no echo, no line editing, no
// signal characters; breaks and the modem's status lines are ignored. Baud rates are in bits per second.
//
// A handle is created by SYS_COM_Open and belongs to the caller until SYS_COM_Close. Pointers must not be null except
// where said otherwise. One thread may read from a handle while another writes to it.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// An open port.
typedef struct SYS_COM_HANDLE {
  int32_t Fd;  // The platform's descriptor, closed on exec.
} SYS_COM_HANDLE;

// One entry of the list of ports.
typedef struct SYS_COM_PORT_NAME {
  char acName[128];  // The device name, cut to 63 characters; byte 64 is 0. All bytes behind the name's terminator are
                     // left as they were otherwise.
} SYS_COM_PORT_NAME;

// Opens a port for reading and writing, for this process alone as long as it is open: further opens fail, with EBUSY,
// except those of privileged users. It does not become the controlling terminal. What was received and not yet read,
// or written and not yet sent, is dropped.
//
// Any rate that the port's driver accepts is possible. When it refuses one, "ERROR while writing port settings." goes
// to standard output as a line, the only text that the layer prints by itself. Returns null in that case, when the
// device cannot be opened (missing, busy, not permitted), when its path with "/dev/" has more than 127 characters, and
// when memory is exhausted.
SYS_COM_HANDLE* SYS_COM_Open(const char* deviceName, uint32_t baudrate);

// Sets the rate of an open port, given by the descriptor in its handle; what is being sent at that time may be garbled.
// Returns 0, or -1 when the rate is 0 or the driver refuses it. Drivers on Linux do not refuse but take another rate:
// there one that differs by more than 3 % counts as refused, and stays in force.
int32_t SYS_COM_SetBaudrate(int32_t fd, uint32_t baudrate);

// Waits up to timeoutMs milliseconds for data, without limit when that is negative, then reads once, up to numBytes
// bytes. Returns the number of bytes, which can be fewer than have been sent, 0 when the time ran out, -1 when the wait
// or the read fails. A port whose adapter was unplugged gives 0 or -1 at once.
int32_t SYS_COM_Read(SYS_COM_HANDLE* pHandle, void* pBuffer, uint32_t numBytes, int32_t timeoutMs);

// Writes up to numBytes bytes in one call of the platform, which blocks while the port's buffer is full. Returns the
// number of bytes taken, which can be fewer, or -1. They are sent in the background.
int32_t SYS_COM_Write(SYS_COM_HANDLE* pHandle, const void* pBuffer, uint32_t numBytes);

// Closes the port and frees its handle; null is ignored.
void SYS_COM_Close(SYS_COM_HANDLE* pHandle);

// Lists the USB serial ports, others are left out: the callout devices that begin with "cu.usb" in any case on Darwin,
// in the order of the system's registry, and ttyACM* and ttyUSB*, in the order of their names and numbers, on Linux.
// Fills up to capacity records and returns the number of ports there are, which can be more; 0 also when the platform
// cannot tell. paPorts may be null when capacity is 0.
int32_t SYS_COM_Enumerate(SYS_COM_PORT_NAME* paPorts, uint32_t capacity);

#ifdef __cplusplus
}
#endif

#endif
