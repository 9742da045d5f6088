// 32-bit integers to and from little-endian bytes, the byte order of the wire and of log records.
#pragma once

#include <cstdint>

namespace veltrancord {

// `bytes` holds at least 4 bytes.
inline uint32_t load_le32(const unsigned char* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

// Writes exactly 4 bytes.
inline void store_le32(unsigned char* bytes, uint32_t value) {
    bytes[0] = static_cast<unsigned char>(value);
    bytes[1] = static_cast<unsigned char>(value >> 8);
    bytes[2] = static_cast<unsigned char>(value >> 16);
    bytes[3] = static_cast<unsigned char>(value >> 24);
}

}  // namespace veltrancord
