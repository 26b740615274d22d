#pragma once

// The NDK's system-property read, as far as this library uses it.

#define PROP_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

// Copies the value of `name` (at most PROP_VALUE_MAX bytes with the NUL) into
// `value` and returns its length; an absent property gives "" and 0.
int __system_property_get(const char* name, char* value);

#ifdef __cplusplus
}
#endif
