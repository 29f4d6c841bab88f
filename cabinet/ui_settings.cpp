#include "cabinet/ui_settings.h"
