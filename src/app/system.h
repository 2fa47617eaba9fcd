// Threads, the clock and text in one.

#pragma once

#include "app/clock.h"
#include "app/text.h"
#include "app/threads.h"
