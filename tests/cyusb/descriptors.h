// Descriptors as bytes, for tests of this room.
#pragma once

#include <vector>

#include "jorvet/system/win32.h"

namespace fake {

using Bytes = std::vector<BYTE>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
inline Bytes with(Bytes bytes, std::size_t at, int value) {
    bytes.at(at) = BYTE(value);
    return bytes;
}
inline Bytes interface_of(int number, int alternate, int endpoints) {
    return {9, 4, BYTE(number), BYTE(alternate), BYTE(endpoints), 0xFF, 0, 0, 0};
}
inline Bytes endpoint(int address, int attributes, int max_packet = 512) {
    return {7, 5, BYTE(address), BYTE(attributes), BYTE(max_packet), BYTE(max_packet >> 8), 0};
}
inline Bytes companion(int burst) {
    return {6, 0x30, BYTE(burst), 0, 0, 0};
}
inline Bytes configuration(const Bytes& rest, int name = 0) {
    const std::size_t total = 9 + rest.size();
    return Bytes{9, 2, BYTE(total), BYTE(total >> 8), 2, 1, BYTE(name), 0x80, 50} + rest;
}
inline Bytes bos(int capabilities, const Bytes& rest) {
    return Bytes{5, 0x0F, BYTE(5 + rest.size()), 0, BYTE(capabilities)} + rest;
}
inline const Bytes usb20_extension{7, 0x10, 2, 6, 0, 0, 0};
inline const Bytes super_speed{10, 0x10, 3, 0, 0x0E, 0, 1, 10, 0xFF, 7};

} // namespace fake
