#include "twoway/two_way.h"

#include "core/error.h"
#include "core/synchronization.h"

namespace dossync::twoway {

const std::vector<FieldPair>& fieldPairs(int32_t) {
  static const std::vector<FieldPair> none;
  return none;
}

void enableBothWays(clsOutlookSynchronization& component, const Settings& settings) {
  component.setBothWaysRunner(
      [settings](clsOutlookSynchronization& c) { synchronizeBothWays(c, settings); });
}

void synchronizeBothWays(clsOutlookSynchronization&, const Settings&) {
  throw RuntimeError(kInvalidProcedureCall, "The two-way mode is not built yet");
}

}  // namespace dossync::twoway
