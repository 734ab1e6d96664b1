// What the board's status words mean to the caller of a request.
#pragma once

#include <map>

namespace jorvet::core {

// Board status word to status code; a word that is not in the table counts as success.
std::map<unsigned int, unsigned int> make_board_status_table();

} // namespace jorvet::core
