// Writes the engine's table of streams as seed inputs: one file each, into the folder given as the argument.
#include <fstream>

#include "tests/support/receive_vectors.h"

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    for (const auto& vector : jorvet::testing::receive_vectors) {
        std::ofstream file(std::string(argv[1]) + "/" + vector.name, std::ios::binary);
        for (const char* packet : vector.packets) {
            const std::vector<unsigned char> bytes = jorvet::testing::from_hex(packet);
            file.put(static_cast<char>(bytes.size()));
            file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        }
        if (!file.flush())
            return 1;
    }
    return 0;
}
