#include "game/input_tape.h"

#include <gtest/gtest.h>

namespace brickfall {
namespace {

InputTape Tape(int32_t cell_w, int32_t cell_h, const std::vector<InputEvent>& events) {
    InputTape tape;
    ResetTape(tape, cell_w, cell_h);
    for (const InputEvent& event : events) AppendEvent(tape, event.tick_ms, event.code);
    return tape;
}

TEST(InputTape, WireForm) {
    EXPECT_EQ(TapeToHex(Tape(32, 32, {})), "01032000200000000000");
    EXPECT_EQ(TapeToHex(Tape(0x1234, 0xFEDC, {{4096, kInputServe}, {4096, kInputEnd}})),
              "0103"
              "3412"
              "dcfe"
              "02000000"
              "0010000007"
              "00100000ff");
    InputTape tape = Tape(1, 1, {});
    AppendEvent(tape, 0x1'8765'4320, kInputLeftUp);  // only the low 32 bits of the clock fit
    EXPECT_EQ(TapeToHex(tape).substr(20), "2043658709");
    ResetTape(tape, 2, 3);
    EXPECT_EQ(TapeToHex(tape), "01030200030000000000");
    std::vector<uint8_t> bytes{9};
    SerializeTape(tape, bytes);
    EXPECT_EQ(bytes.size(), kTapeHeaderBytes) << "nothing of what was there";
}

TEST(InputTape, HexText) {
    using namespace std::string_view_literals;
    std::vector<uint8_t> bytes{9};
    EXPECT_TRUE(HexToBytes("", bytes) && bytes.empty());
    EXPECT_TRUE(HexToBytes("00fF10Ab", bytes));
    EXPECT_EQ(bytes, (std::vector<uint8_t>{0x00, 0xFF, 0x10, 0xAB}));
    // Among them the neighbours of 0, 9, A and a.
    for (const auto text :
         {"abc"sv, "0g"sv, "/0"sv, ":0"sv, "@0"sv, "`0"sv, "00 0"sv, "0\0"sv, "\xC3\xA4"sv}) {
        bytes = {9};
        EXPECT_TRUE(!HexToBytes(text, bytes) && bytes.empty()) << text;
    }
    EXPECT_EQ(NormalizeHex("\0\x1F \tA Bcdef09\r\n\x20\0"sv), "a bcdef09");
    EXPECT_EQ(NormalizeHex("\xFFG\x80"), "\xFFg\x80") << "high bytes are no blanks";
}

TEST(InputTape, SealIsOnePlainSha256OfTheBytes) {
    // "abc" and the empty message are published examples of SHA-256 (FIPS 180-4).
    EXPECT_EQ(TapeHash(" 616263\n"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(TapeHash(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(TapeHash("aB"), TapeHash("Ab"));
    EXPECT_EQ(TapeHash("616"), "");
}

}  // namespace
}  // namespace brickfall
