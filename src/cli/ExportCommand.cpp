#include "cli/Commands.h"

namespace sonvale::cli {

int exportCommand(const Arguments&) { throw UsageError{"not built yet"}; }

} // namespace sonvale::cli
