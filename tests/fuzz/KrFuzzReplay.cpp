// Gives each file of a folder to the fuzz target that it is linked with:  NAME FOLDER
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    if (argc != 2 || !std::filesystem::is_directory(argv[1])) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    std::size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream stream(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
        // The name is told first: an input that ends the process is then known.
        std::printf("%s\n", entry.path().filename().c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++files;
    }
    std::printf("%zu inputs\n", files);
    return files > 0 ? 0 : 1;
}
