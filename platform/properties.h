// SPDX-License-Identifier: Apache-2.0
// The system-property seam: libcutils' property_get in a platform build; in an
// NDK build a shim over bionic's __system_property_get; on the host a shim
// over android-base's in-process property store, so that tests and tools can
// set a property with android::base::SetProperty. All share libcutils'
// signature and its rule that an empty value counts as unset.
#pragma once

#if defined(VANDRO_USE_LIBCUTILS)
#include <cutils/properties.h>
#else
#ifndef PROPERTY_VALUE_MAX
#define PROPERTY_VALUE_MAX 92
#endif
extern "C" {
// Copies the value of key (at most PROPERTY_VALUE_MAX - 1 chars, NUL-terminated)
// into value, or default_value when the property is unset or empty; returns the
// length written.
int property_get(const char* key, char* value, const char* default_value);
}
#endif
