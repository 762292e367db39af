#include "paperloom/Version.h"

#define PAPERLOOM_DECIMAL_(major, minor) major##.##minor
#define PAPERLOOM_DECIMAL(major, minor) PAPERLOOM_DECIMAL_(major, minor)

const unsigned char PaperloomVersionString[] = PAPERLOOM_VERSION;
const double PaperloomVersionNumber =
    PAPERLOOM_DECIMAL(PAPERLOOM_VERSION_MAJOR, PAPERLOOM_VERSION_MINOR);
