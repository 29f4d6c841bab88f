#include "cabinet/window_placement.h"
