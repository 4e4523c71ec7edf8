// SPDX-License-Identifier: Apache-2.0
// The library's log lines are not what a fuzz run looks at: dropped here, so
// that millions of runs do not flood the terminal.
extern "C" int __android_log_print(int, const char*, const char*, ...) { return 0; }
