// replay_main.cpp - runs the fuzz target that it is linked with over every file of a folder, in name order.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <set>

#include "fuzz/support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    using brickfall::Require;
    Require(argc == 2);
    std::set<std::string> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1]))
        inputs.insert(entry.path().string());
    Require(!inputs.empty());
    for (const std::string& input : inputs) {
        const auto content = brickfall::ReadFile(input);
        if (!content) std::fprintf(stderr, "cannot read %s\n", input.c_str());
        Require(content.has_value());
        // A copy of exactly the input's size, so that a sanitizer sees every read behind its end.
        const auto bytes = std::make_unique<uint8_t[]>(content->size());
        std::copy(content->begin(), content->end(), bytes.get());
        LLVMFuzzerTestOneInput(bytes.get(), content->size());
    }
    std::printf("%zu inputs replayed\n", inputs.size());
    return 0;
}
