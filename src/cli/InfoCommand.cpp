#include "cli/Commands.h"

namespace sonvale::cli {

int info(const Arguments&) { throw UsageError{"not built yet"}; }
int exportCommand(const Arguments&) { throw UsageError{"not built yet"}; }

} // namespace sonvale::cli
