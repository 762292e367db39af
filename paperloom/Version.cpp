#include "paperloom/Version.h"

const unsigned char PaperloomVersionString[] = PAPERLOOM_VERSION;
const double PaperloomVersionNumber = PAPERLOOM_VERSION_NUMBER;
