#include "paperloom/Version.h"

int main() { return PaperloomVersionString[0] == '\0'; }
