#include "agent/flags.h"

TQovFlags QovFlags;
