// Android's system properties, kept here in one process-wide store. Any thread.
#ifndef CUTILS_PROPERTIES_H_
#define CUTILS_PROPERTIES_H_

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

extern "C" {

// Copies the value of `key`, cut to 91 bytes and NUL-terminated, to `value` (PROPERTY_VALUE_MAX bytes). If
// it is unset or empty, copies `default_value`, or the empty text if that is null. Returns the length.
int property_get(const char* key, char* value, const char* default_value);

// Sets the property for the whole process; an empty or null value unsets it. Returns 0, or -1 for a value of
// more than 91 bytes or a null or empty key.
int property_set(const char* key, const char* value);
}

#endif  // CUTILS_PROPERTIES_H_
