#include "cabinet/shell_state.h"

namespace brickfall {

Shell& shell = *new Shell;

}  // namespace brickfall
