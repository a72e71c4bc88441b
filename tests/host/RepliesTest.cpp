#include "host/Replies.h"

#include <gtest/gtest.h>

#include "tests/host/RawBytes.h"

namespace com_tesk::host {
namespace {

using host_test::hex;
using host_test::joined;
using host_test::nameField;
using host_test::text;
using host_test::zeros;

const Bytes kFrameRest = hex("00000020 00000000 00000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF");

TEST(Replies, VersionReplyIsLaidOutAsClientsReadIt) {
    const Bytes expected = joined({hex("000000B8"), kFrameRest, hex("04 02 7F FF 00 00 00 98 00 7F 01 06"),
                                   hex("80 01 00 00"), hex("56 31"), zeros(126), hex("00 00 00 09 00 00 00 01")});
    EXPECT_EQ(text(encodeVersionReply(0x8001, "V1", 9)), text(expected));
}

TEST(Replies, AVersionTextOfMoreThanItsFieldIsCut) {
    const Bytes reply = encodeVersionReply(1, std::string(127, 'x') + "yz", 0xFFFFFFFF);
    ASSERT_EQ(reply.size(), 184U);
    EXPECT_EQ(reply[48 + 126], 'x');
    EXPECT_EQ(reply[48 + 127], 'y');
    EXPECT_EQ(reply[48 + 128], 0xFF) << "the protocol version follows at once";
}

TEST(Replies, InputsReplyIsLaidOutAsClientsReadIt) {
    const Bytes expected =
        joined({hex("0000009C"), kFrameRest, hex("04 02 7F FF 00 00 00 7C 00 7F 01 01"), hex("00 05 00 00 00 00 00 02"),
                hex("00 00 00 07 00 00 2E E0 00 00 2E E1 00 00 00 00 3F 80 00 00"), nameField("A"),
                hex("00 00 00 08 00 01 D4 C0 00 01 D4 C0 00 00 00 01 FF FF FF FE"), nameField("B")});
    EXPECT_EQ(text(encodeInputsReply(5, {{7, 12000, 12001, HostValue::real(1.0F), "A"},
                                         {8, 120000, 120000, HostValue::integer(-2), "B"}})),
              text(expected));
}

TEST(Replies, OutputsReplyIsLaidOutAsClientsReadIt) {
    const Bytes expected =
        joined({hex("00000064"), kFrameRest, hex("04 02 7F FF 00 00 00 44 00 7F 01 02"), hex("00 05 00 00 00 00 00 01"),
                hex("00 00 00 07 00 00 04 B0 00 00 00 01 00 00 00 00"), Bytes(32, 'n')});
    EXPECT_EQ(text(encodeOutputsReply(5, {{7, 1200, 1, std::string(32, 'n')}})), text(expected));
}

TEST(Replies, UpdateIsLaidOutAsClientsReadIt) {
    const Bytes expected =
        joined({hex("00000050"), kFrameRest, hex("04 02 7F FF 00 00 00 30 00 7F 00 03"),
                hex("00 05 00 00 00 00 00 00 00 00 00 02"), hex("00 00 00 07 00 00 00 00 40 49 0F DB"),
                hex("00 00 00 08 00 00 00 01 00 00 00 2A")});
    EXPECT_EQ(text(encodeUpdate(5, {{7, HostValue::fromBits(0x40490FDB, false)}, {8, HostValue::integer(42)}})),
              text(expected));
}

}  // namespace
}  // namespace com_tesk::host
