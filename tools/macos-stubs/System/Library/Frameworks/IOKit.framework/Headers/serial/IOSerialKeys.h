#ifndef MACOS_STUBS_IOSERIALKEYS_H
#define MACOS_STUBS_IOSERIALKEYS_H

// Stand-in: class and property names of the serial services.

#define kIOSerialBSDServiceValue "IOSerialBSDClient"
#define kIOSerialBSDTypeKey "IOSerialBSDClientType"
#define kIOSerialBSDAllTypes "IOSerialStream"
#define kIOCalloutDeviceKey "IOCalloutDevice"

#endif
