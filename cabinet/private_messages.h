// private_messages.h - what the workers post to the main window.
#pragma once

#include <cstdint>
#include <string>

namespace brickfall {

// What a worker posts to the main window; each payload is freed by whoever takes the message.
enum PrivateMessage : int {
    kMsgConnectDone = 32769,  // std::string, the result text
    kMsgStatusText = 32770,   // std::string
    kMsgPayDone = 32771,      // value: PayKind; std::string
    kMsgPotDone = 32772,      // PotResult
    kMsgBoardDone = 32773,    // std::unique_ptr<BoardResult>
    kMsgBalanceDone = 32774,  // StatusResult
    kMsgUpdateDone = 32775,   // value: latest build number plus 1; 0 if unknown
};

struct PotResult {
    int64_t sats = -1;  // -1 if unknown
    std::string error;
};

}  // namespace brickfall
