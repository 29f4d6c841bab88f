// desktop_server.h - the ends of what desktop.h claims. Main thread only.
#pragma once

namespace brickfall {

void ReleaseWindowClasses();  // while the toolkit still runs

}  // namespace brickfall
