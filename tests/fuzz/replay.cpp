// Runs a fuzz target over kept inputs, without a fuzzer: replay PATH... (files, or directories of files). A
// directory without inputs is a failure, or a lost corpus would go unnoticed.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzInput.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputsAt(const fs::path& place) {
    if (!fs::is_directory(place))
        return {place};
    std::vector<fs::path> inputs;
    for (const fs::directory_entry& entry : fs::directory_iterator(place))
        inputs.push_back(entry.path());
    std::sort(inputs.begin(), inputs.end());
    return inputs;
}

void runOn(const fs::path& input) {
    std::ifstream file(input, std::ios::binary);
    require(file.is_open(), "an input can be read");
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // Of the exact size, so that the sanitizers detect a read beyond the end.
    std::vector<std::uint8_t> exact;
    exact.reserve(std::max<std::size_t>(bytes.size(), 1)); // not null for an empty one, as a fuzzer has it
    exact.assign(bytes.begin(), bytes.end());
    // Left behind for the abort of a failing target.
    std::fprintf(stderr, "%s\n", input.c_str());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

} // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::vector<fs::path> inputs = inputsAt(argv[i]);
        require(!inputs.empty(), "there are inputs");
        std::for_each(inputs.begin(), inputs.end(), runOn);
        count += inputs.size();
    }
    require(count > 0, "a path is given");
    std::printf("%zu inputs\n", count);
    return 0;
}
