#include "leaf/byte_order.h"

#include <gtest/gtest.h>

#include <array>

namespace veltrancord {
namespace {

using four_bytes = std::array<unsigned char, 4>;

TEST(ByteOrder, StoresTheLeastSignificantByteFirst) {
    four_bytes bytes = {};
    store_le32(bytes.data(), 0x04030201U);
    EXPECT_EQ(bytes, (four_bytes{1, 2, 3, 4}));
}

TEST(ByteOrder, StoresANegativeResultInTwoSComplement) {
    four_bytes bytes = {};
    store_le32(bytes.data(), static_cast<uint32_t>(-4));
    EXPECT_EQ(bytes, (four_bytes{0xFC, 0xFF, 0xFF, 0xFF}));
}

TEST(ByteOrder, WritesNoFifthByte) {
    std::array<unsigned char, 6> bytes = {7, 7, 7, 7, 7, 7};
    store_le32(bytes.data() + 1, 0);
    EXPECT_EQ(bytes, (std::array<unsigned char, 6>{7, 0, 0, 0, 0, 7}));
}

TEST(ByteOrder, LoadsWhatWasStored) {
    for (const uint32_t value : {0U, 1U, 0x80U, 0xFF00U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        four_bytes bytes = {};
        store_le32(bytes.data(), value);
        EXPECT_EQ(load_le32(bytes.data()), value);
    }
}

TEST(ByteOrder, LoadsHighBytesWithoutTheirSign) {
    const four_bytes bytes = {0xFF, 0x80, 0xFE, 0xF0};
    EXPECT_EQ(load_le32(bytes.data()), 0xF0FE80FFU);
}

}  // namespace
}  // namespace veltrancord
