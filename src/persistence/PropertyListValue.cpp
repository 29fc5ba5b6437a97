#include "PropertyListValue.h"

namespace corvane {

const PropertyListValue* PropertyListValue::value(QStringView key) const
{
    const Dictionary* entries = dictionary();
    if (!entries)
        return nullptr;
    for (auto it = entries->rbegin(); it != entries->rend(); ++it) {
        if (it->first == key)
            return &it->second;
    }
    return nullptr;
}

} // namespace corvane
