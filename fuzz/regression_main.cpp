// SPDX-License-Identifier: Apache-2.0
// Replays a fuzz target's kept inputs (crashes once found, now fixed) outside
// the fuzzer: one argument per input file.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    for (int i = 1; i < argc; i++) {
        std::ifstream in(argv[i], std::ios::binary);
        std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        printf("replayed %s\n", argv[i]);
    }
    printf("%d passed, 0 failed\n", argc - 1);
    return 0;
}
