#include "cabinet/sound.h"
