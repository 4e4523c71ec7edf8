// SPDX-License-Identifier: Apache-2.0
// Sample intake: the entry point that takes each captured buffer.
#pragma once

// Signature text used in the entry point's log lines.
#define VANDRO_HANDLE_BUFFER_SIG "int VandroHandleBuffer(int16_t*, int, float_t*, int)"
