// workers.h - the detached work that the main window starts, each ending with one message to it. What a
// worker needs is handed to it; it touches nothing of the windows.
#pragma once

#include "board/local_scores.h"
#include "game/flows.h"
#include "platform/window.h"

namespace brickfall {

void StartPotWorker(WindowId main);      // kMsgPotDone
void StartBalanceWorker(WindowId main);  // kMsgBalanceDone; the caller has set balance_busy
void StartBoardWorker(WindowId main, BoardSnapshot snapshot);  // kMsgBoardDone
void StartUpdateWorker(WindowId main);                         // kMsgUpdateDone

// Brings the results of the flows to the main thread.
void PostConnectDone(WindowId main, ResultText result);
void PostPayDone(WindowId main, PayKind kind, ResultText result);

}  // namespace brickfall
