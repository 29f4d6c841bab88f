#include "board/board_load.h"
