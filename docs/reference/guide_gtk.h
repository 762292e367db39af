#pragma once

#include <glib-unix.h>

#include "guide_plain.h"
