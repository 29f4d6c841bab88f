#include "board/local_scores.h"
