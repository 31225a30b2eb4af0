#ifndef APP_IDENTITY_H
#define APP_IDENTITY_H

// Who the product is: its name, version and the texts made from them. Each operation returns a text that lives as long
// as the process. For one thread at a time, since the texts are put together when the first of them is asked for.

#ifdef __cplusplus
extern "C" {
#endif

// "Tamsel".
const char* IDENTITY_GetProductName(void);

// "NORDAX Tamsel V9.42", the first line of every run.
const char* IDENTITY_GetBanner(void);

// "Tamsel V9.42".
const char* IDENTITY_GetShortTitle(void);

// "Software\NORDAX\Tamsel", the product's key below a root of the registry.
const char* IDENTITY_GetRegistryKey(void);

#ifdef __cplusplus
}
#endif

#endif
