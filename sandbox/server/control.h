// control.h - the control endpoint: the sandbox's own operations over HTTP, for whoever runs it as a program.
// Any thread.
#pragma once

#include "sandbox/server/https_server.h"
#include "sandbox/server/operations.h"

namespace brickfall::sandbox {

HttpReply AnswerControl(Operations& sandbox, const HttpRequest& request);

}  // namespace brickfall::sandbox
