#include "cabinet/workers.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/workers.h"
#include "board/board_load.h"
#include "cabinet/private_messages.h"
#include "cabinet/update_check.h"
#include "deployment/deployment.h"
#include "platform/image.h"
#include "wallet/chain/chain_api.h"
#include "wallet/link/status_refresh.h"
#include "wallet/protocol/outpoint.h"

namespace brickfall {
namespace {

PotResult ReadPot() {
    PotResult pot;
    std::vector<Utxo> outputs;
    if (!FetchUtxos(kArcadePotAddress, outputs, pot.error)) return pot;
    pot.error.clear();
    pot.sats = 0;
    for (const Utxo& output : outputs) {
        if (__builtin_add_overflow(pot.sats, output.value, &pot.sats)) return {-1, "bad amounts"};
    }
    return pot;
}

// A missing text travels as a message without a payload.
std::unique_ptr<Payload> TextPayload(ResultText text) {
    return text != nullptr ? MakePayload(std::move(*text)) : nullptr;
}

}  // namespace

void StartPotWorker(WindowId main) {
    StartWorker([main] { PostWindowMessage(main, kMsgPotDone, 0, MakePayload(ReadPot())); });
}

void StartBalanceWorker(WindowId main) {
    StartWorker([main] {
        BalanceWorker([main](const StatusResult& result) {
            PostWindowMessage(main, kMsgBalanceDone, 0, MakePayload(result));
        });
    });
}

void StartBoardWorker(WindowId main, BoardSnapshot snapshot) {
    StartWorker([main, snapshot = std::move(snapshot)] {
        BoardWorker(snapshot, DecodeImage, [main](std::unique_ptr<BoardResult> result) {
            PostWindowMessage(main, kMsgBoardDone, 0, MakePayload(std::move(result)));
        });
    });
}

void StartUpdateWorker(WindowId main) {
    StartWorker([main] {
        const int32_t build = LatestBuild();
        if (WindowExists(main)) PostWindowMessage(main, kMsgUpdateDone, int64_t{build} + 1);
    });
}

void PostConnectDone(WindowId main, ResultText result) {
    PostWindowMessage(main, kMsgConnectDone, 0, TextPayload(std::move(result)));
}

void PostPayDone(WindowId main, PayKind kind, ResultText result) {
    PostWindowMessage(main, kMsgPayDone, kind, TextPayload(std::move(result)));
}

}  // namespace brickfall
