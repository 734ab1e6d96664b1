// The table of board status words. The codes follow the order of the words, except that 0x3003 was added last.
#include "jorvet/core/board_status.h"

#include "jorvet/base/status.h"
#include "jorvet/protocol/frames.h"

namespace jorvet::core {

std::map<unsigned int, unsigned int> make_board_status_table() {
    return {
        {protocol::board_success, JV_OK}, {0xB000, JV_ERR_BOARD_B000}, {0xB001, JV_ERR_BOARD_B001},
        {0x2000, JV_ERR_BOARD_2000},      {0x2001, JV_ERR_BOARD_2001}, {0x2002, JV_ERR_BOARD_2002},
        {0x2003, JV_ERR_BOARD_2003},      {0x3000, JV_ERR_BOARD_3000}, {0x3001, JV_ERR_BOARD_3001},
        {0x3002, JV_ERR_BOARD_3002},      {0x3003, JV_ERR_BOARD_3003}, {0x3004, JV_ERR_BOARD_3004},
        {0x3005, JV_ERR_BOARD_3005},      {0x3006, JV_ERR_BOARD_3006}, {0x3007, JV_ERR_BOARD_3007},
        {0x3008, JV_ERR_BOARD_3008},      {0x3101, JV_ERR_BOARD_3101}, {0x4000, JV_ERR_BOARD_4000},
        {0x4001, JV_ERR_BOARD_4001},
    };
}

} // namespace jorvet::core
