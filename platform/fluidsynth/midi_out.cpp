#include "platform/midi_out.h"
