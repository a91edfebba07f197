// Addresses of the configuration as the card's registers take them.

#include "bringup/NetworkAddress.h"

#include <gtest/gtest.h>

namespace {

TEST(NetworkAddress, AMacIsSixHexadecimalBytesFirstOneFirst) {
    EXPECT_EQ(ParseMac("00:11:22:aa:BB:fF"), (MacBytes{0x00, 0x11, 0x22, 0xAA, 0xBB, 0xFF}));
    EXPECT_EQ(ParseMac("1:2:3:4:5:6"), (MacBytes{1, 2, 3, 4, 5, 6}));
}

TEST(NetworkAddress, WhatCannotBeReadOfAMacIsZero) {
    EXPECT_EQ(ParseMac(""), MacBytes{});
    EXPECT_EQ(ParseMac("none"), MacBytes{});
    EXPECT_EQ(ParseMac("11"), (MacBytes{0x11, 0, 0, 0, 0, 0}));
    EXPECT_EQ(ParseMac("11:22:33:44:55"), (MacBytes{0x11, 0x22, 0x33, 0x44, 0x55, 0}));
    EXPECT_EQ(ParseMac("11:22:zz:44:55:66"), (MacBytes{0x11, 0x22, 0, 0, 0, 0}));
    EXPECT_EQ(ParseMac("11-22-33-44-55-66"), (MacBytes{0x11, 0, 0, 0, 0, 0}));
    EXPECT_EQ(ParseMac("112233445566"), (MacBytes{0x11, 0, 0, 0, 0, 0}));
    EXPECT_EQ(ParseMac("11:222:33:44:55:66"), (MacBytes{0x11, 0x22, 0, 0, 0, 0}));
}

TEST(NetworkAddress, WhatFollowsAMacIsIgnored) {
    EXPECT_EQ(ParseMac("01:02:03:04:05:06:07 of the card"), (MacBytes{1, 2, 3, 4, 5, 6}));
}

TEST(NetworkAddress, TheHighWordHoldsTheFirstTwoBytes) {
    EXPECT_EQ(MacHighWord({0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC}), 0x1234U);
    EXPECT_EQ(MacHighWord({0xFF, 0xFF, 0, 0, 0, 0}), 0xFFFFU);
    EXPECT_EQ(MacHighWord({0xFFFF, 0x01, 0, 0, 0, 0}), 0xFF01U);  // 16 bits, whatever was read
}

TEST(NetworkAddress, TheLowWordHoldsTheLastFourBytesAndTheGroup) {
    const MacBytes mac = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC};
    EXPECT_EQ(MacLowWord(mac, 0), 0x56789ABCU);
    EXPECT_EQ(MacLowWord(mac, 1), 0x56789ABDU);
    EXPECT_EQ(MacLowWord(mac, 2), 0x56789ABEU);
    EXPECT_EQ(MacLowWord(mac, 3), 0x56789ABFU);
    EXPECT_EQ(MacLowWord({0, 0, 0xFF, 0xFF, 0xFF, 0xFC}, 3), 0xFFFFFFFFU);
}

TEST(NetworkAddress, AGroupAddedToTheLastByteIsMergedIntoAnEvenFifthByte) {
    const MacBytes mac = {0, 0, 0x01, 0x02, 0x10, 0xFF};
    EXPECT_EQ(MacLowWord(mac, 0), 0x010210FFU);
    EXPECT_EQ(MacLowWord(mac, 1), 0x01021100U);
    EXPECT_EQ(MacLowWord(mac, 2), 0x01021101U);
    EXPECT_EQ(MacLowWord(mac, 3), 0x01021102U);
}

TEST(NetworkAddress, AGroupAddedToTheLastByteIsNotCarriedIntoAnOddFifthByte) {
    const MacBytes mac = {0, 0, 0x01, 0x02, 0x11, 0xFF};
    EXPECT_EQ(MacLowWord(mac, 0), 0x010211FFU);
    EXPECT_EQ(MacLowWord(mac, 1), 0x01021100U);
    EXPECT_EQ(MacLowWord(mac, 2), 0x01021101U);
    EXPECT_EQ(MacLowWord(mac, 3), 0x01021102U);
    EXPECT_EQ(MacLowWord({0, 0, 0, 0, 0xFF, 0xFD}, 3), 0x0000FF00U);
}

TEST(NetworkAddress, AnIpAddressStandsInHostOrder) {
    EXPECT_EQ(ParseIp("239.3.41.1"), 0xEF032901U);
    EXPECT_EQ(ParseIp("192.168.10.200"), 0xC0A80AC8U);
    EXPECT_EQ(ParseIp("0.0.0.0"), 0U);
    EXPECT_EQ(ParseIp("1.2.3.4"), 0x01020304U);
}

TEST(NetworkAddress, ATextThatIsNoIpAddressIsAllOnes) {
    EXPECT_EQ(ParseIp(""), 0xFFFFFFFFU);
    EXPECT_EQ(ParseIp("exchange"), 0xFFFFFFFFU);
    EXPECT_EQ(ParseIp("239.3.41.256"), 0xFFFFFFFFU);
    EXPECT_EQ(ParseIp("239.3.41.1.5"), 0xFFFFFFFFU);
}

}  // namespace
