#pragma once

#include <QSocketNotifier>

#include "guide_plain.h"
