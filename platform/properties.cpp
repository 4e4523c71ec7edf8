// SPDX-License-Identifier: Apache-2.0
#include "platform/properties.h"

#if defined(VANDRO_USE_LIBCUTILS)
// A platform build links libcutils' own property_get.
#elif defined(__ANDROID__)
// An NDK build has no libcutils: bionic's property area, with the same rule
// that an empty value counts as unset.
#include <sys/system_properties.h>

#include <cstring>

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (key == nullptr || value == nullptr) return 0;
    int len = __system_property_get(key, value);
    if (len <= 0 && default_value != nullptr) {
        len = static_cast<int>(strnlen(default_value, PROPERTY_VALUE_MAX - 1));
        memcpy(value, default_value, len);
        value[len] = '\0';
    }
    return len > 0 ? len : 0;
}
#else
#include <android-base/properties.h>

#include <cstring>
#include <string>

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (key == nullptr || value == nullptr) return 0;
    std::string v = android::base::GetProperty(key, "");
    // As libcutils: an empty value falls back to the default.
    if (v.empty() && default_value != nullptr) v = default_value;
    size_t len = v.size();
    if (len > PROPERTY_VALUE_MAX - 1) len = PROPERTY_VALUE_MAX - 1;
    memcpy(value, v.data(), len);
    value[len] = '\0';
    return static_cast<int>(len);
}
#endif
