#include "platform/properties.h"

#if !defined(VANDRO_USE_LIBCUTILS)
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
