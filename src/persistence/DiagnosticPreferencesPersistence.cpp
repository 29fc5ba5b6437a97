// PLACEHOLDER so the project links; replaced by the property-list implementation.
#include "DiagnosticPreferencesPersistence.h"

namespace corvane {

DiagnosticPreferencesPersistence::Preferences DiagnosticPreferencesPersistence::load() const { return {}; }
Result<void> DiagnosticPreferencesPersistence::save(const QSet<DiagnosticPreferenceKey>&,
                                                    const QSet<DiagnosticPreferenceKey>&) const
{
    return {};
}

} // namespace corvane
