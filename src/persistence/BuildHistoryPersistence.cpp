// PLACEHOLDER so the project links; replaced by the property-list implementation.
#include "BuildHistoryPersistence.h"

namespace corvane {

Result<QList<BuildSession>> BuildHistoryPersistence::load() const { return QList<BuildSession>{}; }
Result<void> BuildHistoryPersistence::save(const QList<BuildSession>&) const { return {}; }
Result<void> BuildHistoryPersistence::clear() const { return {}; }

} // namespace corvane
