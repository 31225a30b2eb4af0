// macOS: what takes frameworks, that is serial ports, power assertions and the process transform. It is an object of
// its own, so that programs which need none of it do not load the frameworks.

#include <ApplicationServices/ApplicationServices.h>
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/pwr_mgt/IOPMLib.h>
#include <IOKit/serial/IOSerialKeys.h>
#include <IOKit/serial/ioss.h>
#include <sys/ioctl.h>

#include "sys/platform.h"
#include "util/strings.h"

int32_t PLATFORM_SetBaudrate(int32_t fd, uint32_t baudrate) {
  const speed_t speed = baudrate;
  return ioctl(fd, IOSSIOSPEED, &speed);
}

namespace {

constexpr char DEVICE_DIR[] = "/dev/";
constexpr char USB_PORT_PREFIX[] = "/dev/cu.usb";
constexpr uint32_t MAX_PROPERTY = 512;

// Gives a text property of a service; empty when the service has none.
void ReadTextProperty(io_registry_entry_t service, CFStringRef key, char* pDest, uint32_t size) {
  pDest[0] = '\0';
  const CFTypeRef property = IORegistryEntryCreateCFProperty(service, key, kCFAllocatorDefault, 0);
  if (property == nullptr) {
    return;
  }
  if (CFGetTypeID(property) != CFStringGetTypeID() ||
      !CFStringGetCString(static_cast<CFStringRef>(property), pDest, size, kCFStringEncodingUTF8)) {
    pDest[0] = '\0';
  }
  CFRelease(property);
}

}  // namespace

// The main port's name depends on the system's release; the null port stands for it in all of them.
void PLATFORM_ListSerialPorts(void (*pfOnPort)(const char* deviceName, void* pContext), void* pContext) {
  CFMutableDictionaryRef matching = IOServiceMatching(kIOSerialBSDServiceValue);
  if (matching == nullptr) {
    return;
  }
  CFDictionarySetValue(matching, CFSTR(kIOSerialBSDTypeKey), CFSTR(kIOSerialBSDAllTypes));
  io_iterator_t services = IO_OBJECT_NULL;
  // Takes the dictionary over, also when it fails.
  if (IOServiceGetMatchingServices(MACH_PORT_NULL, matching, &services) != KERN_SUCCESS || services == IO_OBJECT_NULL) {
    return;
  }
  while (const io_object_t service = IOIteratorNext(services)) {
    char acPath[MAX_PROPERTY];
    ReadTextProperty(service, CFSTR(kIOCalloutDeviceKey), acPath, sizeof(acPath));
    if (UTIL_CompareNoCaseN(acPath, USB_PORT_PREFIX, sizeof(USB_PORT_PREFIX) - 1) == 0) {
      pfOnPort(acPath + sizeof(DEVICE_DIR) - 1, pContext);
    }
    IOObjectRelease(service);
  }
  IOObjectRelease(services);
}

uint32_t PLATFORM_PreventIdleSleep() {
  IOPMAssertionID assertion = kIOPMNullAssertionID;
  IOPMAssertionCreateWithDescription(kIOPMAssertionTypeNoIdleSleep, CFSTR("PreventSleep"), nullptr, nullptr, nullptr, 0,
                                     nullptr, &assertion);
  return assertion;
}

void PLATFORM_AllowIdleSleep(uint32_t assertion) {
  IOPMAssertionRelease(assertion);
}

int32_t PLATFORM_BecomeUIElement() {
  const ProcessSerialNumber process = {0, kCurrentProcess};
  return TransformProcessType(&process, kProcessTransformToUIElementApplication) == 0 ? 0 : -1;
}
