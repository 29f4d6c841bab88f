// sandbox_route.h - only in the sandbox deployment: points the program at a running sandbox.
#pragma once

#include "deployment/deployment.h"

namespace brickfall {

// Overrides the route of this process. Without it the environment variables "BRICKFALL_SANDBOX_CONNECT" and
// "BRICKFALL_SANDBOX_CA" hold it. Any thread.
void SetConnectRoute(ConnectRoute route);

}  // namespace brickfall
