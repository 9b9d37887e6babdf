// Runs a fuzzer's entry point over the files of a corpus and over variations of them, in builds
// without the fuzzing engine.
#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

void run(const std::string &input) {
    // A block of exactly that size, so that a sanitizer sees each byte that is read beyond it.
    const std::vector<uint8_t> bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

} // namespace

int main(int argc, char **argv) {
    std::vector<std::string> corpus;
    for (int i = 1; i < argc; ++i) {
        for (const auto &entry : std::filesystem::directory_iterator(argv[i])) {
            std::ifstream file(entry.path(), std::ios::binary);
            run(corpus.emplace_back(std::istreambuf_iterator<char>(file),
                                    std::istreambuf_iterator<char>()));
        }
    }
    if (corpus.empty()) {
        return 1;
    }
    // The same order in each run, as far as the time allows.
    std::sort(corpus.begin(), corpus.end());
    std::minstd_rand random(1);
    const auto any = [&](size_t count) { return random() % count; };
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(2);
    size_t variations = 0;
    for (; std::chrono::steady_clock::now() < end; ++variations) {
        std::string input = corpus[any(corpus.size())];
        for (size_t changes = 1 + any(4); changes > 0; --changes) {
            const std::string &other = corpus[any(corpus.size())];
            const size_t at = any(input.size() + 1), from = any(other.size() + 1);
            const size_t old_bytes = any(9) * any(2), new_bytes = any(9) * any(2);
            input.replace(at, old_bytes, other, from, new_bytes);
            if (!input.empty()) {
                input[any(input.size())] ^= static_cast<char>(1 << any(8));
            }
        }
        run(input);
    }
    std::printf("%zu inputs and %zu variations replayed\n", corpus.size(), variations);
}
