#include "board/faces.h"
