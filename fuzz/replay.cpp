// Calls a fuzzer's function for every file in the folders that the arguments name. For compilers without libFuzzer, and
// for the kept inputs in every test run.
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <ios>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

std::string namedOnFailure; // what is printed if the function does not return

void nameInput(int signal)
{
    const ssize_t written = write(STDERR_FILENO, namedOnFailure.data(), namedOnFailure.size());
    static_cast<void>(written); // the process ends, whatever was written
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

int replay(const std::filesystem::path& folder)
{
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        if (!file.is_open() || file.bad()) {
            std::fprintf(stderr, "%s cannot be read\n", entry.path().c_str());
            return -1;
        }
        const std::vector<std::uint8_t> input(bytes.begin(), bytes.end()); // exactly as large, so that overreads show
        namedOnFailure = "The failing input: " + entry.path().string() + "\n";
        LLVMFuzzerTestOneInput(input.data(), input.size());
        ++inputs;
    }
    return inputs;
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> folders(argv + 1, argv + argc);
    LLVMFuzzerInitialize(&argc, &argv);
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE})
        if (const auto before = std::signal(signal, nameInput); before != SIG_DFL)
            std::signal(signal, before); // a sanitizer's
    int inputs = 0;
    for (const auto& folder : folders) {
        const int replayed = replay(folder);
        if (replayed < 1) {
            std::fprintf(stderr, "%s has no inputs\n", folder.c_str());
            return 1;
        }
        inputs += replayed;
    }
    std::printf("%d inputs replayed\n", inputs);
    return inputs > 0 ? 0 : 1;
}
