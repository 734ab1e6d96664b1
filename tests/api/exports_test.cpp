// The shared library from outside: the symbols that it exports are those of the list, and it carries a request.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>

#include "jorvet/api/jorvet_api.h"
#include "tests/support/simulated_board.h"

namespace jorvet::testing {
namespace {

using lines = std::set<std::string>;

lines exported_symbols() {
    lines symbols;
    std::FILE* const output = popen(NM " --dynamic --demangle --defined-only " LIBRARY, "r");
    char line[1000];
    while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr) {
        std::string text(line, std::strcspn(line, "\n"));
        symbols.insert(text.substr(text.find(' ', text.find(' ') + 1) + 1)); // after the address and the kind
    }
    if (output == nullptr || pclose(output) != 0)
        ADD_FAILURE() << NM " does not run";
    return symbols;
}

lines listed_symbols() {
    lines symbols;
    std::ifstream file(EXPORTS);
    for (std::string line; std::getline(file, line);)
        if (!line.empty() && line[0] != '#')
            symbols.insert(line);
    return symbols;
}

TEST(SharedLibrary, ExportsExactlyTheListedSymbols) {
    const lines exported = exported_symbols();
    const lines listed = listed_symbols();
    for (const std::string& symbol : exported)
        EXPECT_TRUE(listed.count(symbol)) << "not in the list: " << symbol;
    for (const std::string& symbol : listed)
        EXPECT_TRUE(exported.count(symbol)) << "not exported: " << symbol;
}

TEST(SharedLibrary, CarriesARequest) {
    plugged_board board;
    CJorvet* const jorvet = JVGetInstance(JV_KIND_FTDI);
    ASSERT_EQ(JVConnect(jorvet, 0), JV_OK);
    unsigned short length = 0;
    unsigned char data[16];
    EXPECT_EQ(JVReadByIdRq(jorvet, 0, 1, 0, &length, data, true), JV_OK);
    EXPECT_EQ(std::string(data, data + length), "jorvet");
    JVCloseInstance(jorvet);
}

} // namespace
} // namespace jorvet::testing
