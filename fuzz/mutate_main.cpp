// Drives a fuzz entry without libFuzzer: runs the files given, then changed copies of them, the same ones every time.
//   -runs=N              N changed copies of each file (default 0)
//   -max_total_time=N    goes on changing copies for N seconds instead
// The input that is running when something breaks is left in crash-input.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

using Input = std::vector<uint8_t>;

static const Input* running = nullptr;

static void keepInput(int signal) {
    std::ofstream("crash-input", std::ios::binary)
        .write(reinterpret_cast<const char*>(running->data()), std::streamsize(running->size()));
    std::fputs("the input is in crash-input\n", stderr);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

static void run(const Input& input) {
    const Input exact(input);  // a block of exactly this size: sanitizers see one byte too far
    running = &exact;
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
}

// A few of the changes that break decoders: a flipped bit, an extreme or random byte, a 32-bit extreme, a cut, a
// doubled run.
static void mutate(Input& input, std::mt19937& random) {
    for (uint32_t count = 1 + random() % 4; count > 0 && !input.empty(); --count) {
        const size_t at = random() % 4 ? random() % input.size() : random() % std::min<size_t>(input.size(), 40);
        switch (random() % 6) {
            case 0: input[at] ^= uint8_t(1u << random() % 8); break;
            case 1: input[at] = "\x00\x01\x7f\x80\xff"[random() % 5]; break;
            case 2: input[at] = uint8_t(random()); break;
            case 3:
                for (size_t i = at; i < std::min(at + 4, input.size()); ++i) input[i] = 0xFF;
                break;
            case 4: input.resize(at); break;
            case 5: {
                const Input run(input.begin() + int64_t(at), input.begin() + int64_t(std::min(at + 16, input.size())));
                input.insert(input.begin() + int64_t(at), run.begin(), run.end());
            }
        }
    }
}

static std::vector<Input> readInputs(const std::vector<std::string>& paths) {
    std::vector<std::filesystem::path> files;
    for (const std::string& path : paths) {
        if (!std::filesystem::is_directory(path))
            files.emplace_back(path);
        else
            for (const auto& entry : std::filesystem::directory_iterator(path))
                if (entry.is_regular_file()) files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    std::vector<Input> inputs;
    for (const auto& file : files) {
        std::ifstream stream(file, std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    return inputs;
}

int main(int argc, char** argv) {
    long runs = 0, seconds = 0;
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) {
        if (std::sscanf(argv[i], "-runs=%ld", &runs) != 1 && std::sscanf(argv[i], "-max_total_time=%ld", &seconds) != 1)
            paths.emplace_back(argv[i]);
    }
    const std::vector<Input> inputs = readInputs(paths);
    if (inputs.empty()) {
        std::fputs("no input files\n", stderr);
        return 1;
    }
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE}) std::signal(signal, keepInput);
    for (const Input& input : inputs) run(input);

    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    std::mt19937 random(1);
    long total = 0;
    for (long round = 0; seconds ? std::chrono::steady_clock::now() < end : round < runs; ++round) {
        for (Input input : inputs) {
            mutate(input, random);
            run(input);
            ++total;
        }
    }
    std::printf("%zu files and %ld changed copies of them: nothing broke\n", inputs.size(), total);
}
