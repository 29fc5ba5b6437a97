#include "StoreTestSupport.h"
#include "TestEnvironment.h"

#include <QMetaEnum>

#include <gtest/gtest.h>

#include <functional>
#include <map>

namespace corvane {
namespace {

using namespace corvane::test;
using Field = BuildStore::Field;

// Every published field as comparable text, so one check covers them all.
QString describe(const BuildStore& store, Field field)
{
    const auto optionalText = [](const auto& value) {
        return value ? QVariant::fromValue(*value).toString() : QStringLiteral("<none>");
    };
    const auto keysText = [](const QSet<DiagnosticPreferenceKey>& keys) -> QString {
        return QString::number(qHashRangeCommutative(keys.cbegin(), keys.cend())) + u'/' + QString::number(keys.size());
    };
    QStringList parts;
    switch (field) {
    case Field::sessions:
        for (const BuildSession& s : store.sessions())
            parts.append(s.id.toString());
        break;
    case Field::activeSessionID:
        return optionalText(store.activeSessionID());
    case Field::selectedDiagnosticID:
        return optionalText(store.selectedDiagnosticID());
    case Field::severityFilter:
        for (const DiagnosticSeverity s : allDiagnosticSeverities) {
            if (store.severityFilter().contains(s))
                parts.append(rawValue(s));
        }
        break;
    case Field::searchText:
        return store.searchText();
    case Field::captureState:
        return QString::number(int(store.captureState().kind)) + store.captureState().payload;
    case Field::lastWatcherMessage:
        return optionalText(store.lastWatcherMessage());
    case Field::showBuildNoise:
        return QString::number(store.showBuildNoise());
    case Field::warningViewMode:
        return QString::number(int(store.warningViewMode()));
    case Field::focusedProjectName:
        return optionalText(store.focusedProjectName());
    case Field::pinnedDiagnostics:
        return keysText(store.pinnedDiagnostics());
    case Field::ignoredDiagnostics:
        return keysText(store.ignoredDiagnostics());
    }
    return parts.join(u',');
}

std::map<Field, QString> snapshot(const BuildStore& store)
{
    std::map<Field, QString> values;
    const QMetaEnum fields = QMetaEnum::fromType<Field>();
    for (int i = 0; i < fields.keyCount(); ++i)
        values[Field(fields.value(i))] = describe(store, Field(fields.value(i)));
    return values;
}

const char* name(Field field)
{
    return QMetaEnum::fromType<Field>().valueToKey(int(field));
}

// Runs an operation and checks that every field it changed was announced,
// and that the first announcement came while the old value was still there.
void expectAnnouncedBeforeChange(BuildStore& store, const char* operation, const std::function<void()>& run)
{
    std::map<Field, QString> seenAtFirstNotice;
    const QMetaObject::Connection connection =
        QObject::connect(&store, &BuildStore::aboutToChange, [&](Field field) {
            if (!seenAtFirstNotice.count(field))
                seenAtFirstNotice[field] = describe(store, field);
        });
    const std::map<Field, QString> before = snapshot(store);
    run();
    const std::map<Field, QString> after = snapshot(store);
    QObject::disconnect(connection);

    for (const auto& [field, value] : before) {
        if (value == after.at(field))
            continue;
        ASSERT_TRUE(seenAtFirstNotice.count(field)) << operation << ": " << name(field) << " changed silently";
        EXPECT_EQ(seenAtFirstNotice.at(field), value)
            << operation << ": " << name(field) << " was already changed when announced";
    }
}

TEST(ChangeNotification, EveryOperationAnnouncesBeforeItWrites)
{
    TestEnvironment environment;
    RecordingPlatform platform;
    BuildStore store(&platform);
    const auto warning = [&] {
        const BuildSession session = store.activeSession().value();
        for (const BuildDiagnostic& d : session.diagnostics) {
            if (d.severity == DiagnosticSeverity::warning)
                return d;
        }
        return BuildDiagnostic{};
    };

    expectAnnouncedBeforeChange(store, "watch", [&] { store.startWatching(); });
    expectAnnouncedBeforeChange(store, "capture", [&] {
        store.captureBuild(logText({warningAt(QStringLiteral("A.swift"), 1, QStringLiteral("w"))}),
                           activityLogPath(QStringLiteral("App")));
    });
    expectAnnouncedBeforeChange(store, "sample", [&] { store.loadSampleDiagnostics(); });
    expectAnnouncedBeforeChange(store, "pin", [&] { store.togglePin(warning()); });
    expectAnnouncedBeforeChange(store, "ignore", [&] { store.toggleIgnore(warning()); });
    expectAnnouncedBeforeChange(store, "filters", [&] {
        store.setSeverityFilter({DiagnosticSeverity::note});
        store.setSearchText(QStringLiteral("abc"));
        store.setShowBuildNoise(true);
        store.setWarningViewMode(BuildStore::WarningViewMode::ignored);
    });
    expectAnnouncedBeforeChange(store, "focus", [&] { store.setFocusedProject(QStringLiteral("App")); });
    expectAnnouncedBeforeChange(store, "select", [&] { store.selectSession(store.sessions().last()); });
    expectAnnouncedBeforeChange(store, "capture for another project", [&] {
        store.captureBuild(logText({}), activityLogPath(QStringLiteral("Other")));
    });
    expectAnnouncedBeforeChange(store, "clear", [&] { store.clearHistory(); });
    expectAnnouncedBeforeChange(store, "restart", [&] { store.restartWatcher(); });
}

} // namespace
} // namespace corvane
