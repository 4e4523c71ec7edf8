// SPDX-License-Identifier: Apache-2.0
// The platform log seam: every line the library writes goes through liblog's
// __android_log_print (Debian's android-liblog on the host).
#pragma once

#include <android/log.h>

// Module tags.
#define VANDRO_TAG_ENGINE "VandroCalc"
#define VANDRO_TAG_MODELS "VandroCalc-Models"
#define VANDRO_TAG_UTILS "VandroCalc-Utils"
#define VANDRO_TAG_MATLAB "VandroCalc-Matlab"

static_assert(ANDROID_LOG_ERROR == 6 && ANDROID_LOG_INFO == 4,
              "the library logs failures at priority 6 and notices at 4");

// Failure line at error priority.
#define VLOGE(tag, ...) ((void)__android_log_print(ANDROID_LOG_ERROR, (tag), __VA_ARGS__))
// Notice at information priority.
#define VLOGI(tag, ...) ((void)__android_log_print(ANDROID_LOG_INFO, (tag), __VA_ARGS__))
