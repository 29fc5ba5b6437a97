#include "DiagnosticListView.h"
#include "CleanBuildPanel.h"
#include "DiagnosticListModel.h"
#include "DiagnosticViewFixtures.h"

#include <QAbstractItemModelTester>
#include <QListView>
#include <QStackedWidget>
#include <QTest>

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

using RowKind = DiagnosticListModel::RowKind;

// The list as the user reads it: "== HEADER" for a section header, the
// message for a row, followed by " [BADGE]" when the row carries one.
QStringList shownRows(const DiagnosticListView& view)
{
    const DiagnosticListModel& model = *view.model();
    QStringList rows;
    for (int row = 0; row < model.rowCount(); ++row) {
        const QModelIndex index = model.index(row);
        const auto kind = RowKind(index.data(DiagnosticListModel::RowKindRole).toInt());
        const QString text = index.data().toString();
        if (kind == RowKind::fixedHeader || kind == RowKind::fileHeader) {
            rows.append(QStringLiteral("== ") + text);
            continue;
        }
        const QString badge = index.data(DiagnosticListModel::BadgeRole).toString();
        rows.append(badge.isEmpty() ? text : text + QStringLiteral(" [") + badge + u']');
    }
    return rows;
}

int rowWithText(const DiagnosticListView& view, const QString& text)
{
    const DiagnosticListModel& model = *view.model();
    for (int row = 0; row < model.rowCount(); ++row) {
        if (model.index(row).data().toString() == text)
            return row;
    }
    ADD_FAILURE() << "no row " << text.toStdString();
    return -1;
}

QUuid idOfRow(const DiagnosticListView& view, int row)
{
    return view.model()->index(row).data(DiagnosticListModel::DiagnosticIDRole).toUuid();
}

// The message of the row the list highlights, or nothing.
QString highlightedMessage(const DiagnosticListView& view)
{
    const QModelIndexList selected = view.listView()->selectionModel()->selectedIndexes();
    if (selected.size() != 1)
        return {};
    return selected.first().data().toString();
}

QString selectedMessage(const BuildStore& store)
{
    const std::optional<BuildDiagnostic> selected = store.selectedDiagnostic();
    return selected ? selected->message : QString();
}

void click(const DiagnosticListView& view, int row)
{
    QListView* list = view.listView();
    const QRect rect = list->visualRect(view.model()->index(row));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rect.center());
}

// Two builds of one project: the second keeps one error, fixes a warning and
// an error, and adds a new warning.
void captureFixedAndNew(StoreFixture& f)
{
    f.captureBuild({
        QStringLiteral("/src/Kept.swift:1:1: error: kept error"),
        QStringLiteral("/src/Gone.swift:2:1: warning: gone warning"),
        QStringLiteral("/src/Legacy.swift:3:1: error: legacy error"),
    });
    f.captureBuild({
        QStringLiteral("/src/Kept.swift:1:1: error: kept error"),
        QStringLiteral("/src/Fresh.swift:5:1: warning: fresh warning"),
    });
}

} // namespace

TEST(DiagnosticListView, GroupsByFileNameInCaseInsensitiveOrder)
{
    StoreFixture f;
    f.store->captureManualLog(QStringList{
                                  QStringLiteral("/App/ContentView.swift:48:17: error: cannot find 'title' in scope"),
                                  QStringLiteral("/App/appDelegate.swift:10:5: warning: unused variable 'x'"),
                                  QStringLiteral("error: linker command failed"),
                                  QStringLiteral("/b/Model.swift:4:1: warning: model b"),
                                  QStringLiteral("/a/Model.swift:3:1: warning: model a"),
                              }.join(u'\n'),
                              QStringLiteral("build.log"));
    DiagnosticListView view(*f.store);

    // A manual log has no previous build: no fixed section and no badges.
    EXPECT_EQ(shownRows(view), (QStringList{
                                   QStringLiteral("== APPDELEGATE.SWIFT"),
                                   QStringLiteral("unused variable 'x'"),
                                   QStringLiteral("== BUILD"),
                                   QStringLiteral("linker command failed"),
                                   QStringLiteral("== CONTENTVIEW.SWIFT"),
                                   QStringLiteral("cannot find 'title' in scope"),
                                   QStringLiteral("== MODEL.SWIFT"),
                                   QStringLiteral("model a"),
                                   QStringLiteral("model b"),
                               }));
    const QModelIndex error = view.model()->index(rowWithText(view, QStringLiteral("cannot find 'title' in scope")));
    EXPECT_EQ(error.data(DiagnosticListModel::LocationRole).toString(), QStringLiteral("ContentView.swift:48:17"));
    EXPECT_EQ(error.data(DiagnosticListModel::SymbolRole).toString(), QStringLiteral("xmark.octagon.fill"));
    const QModelIndex linker = view.model()->index(rowWithText(view, QStringLiteral("linker command failed")));
    EXPECT_EQ(linker.data(DiagnosticListModel::LocationRole).toString(), QStringLiteral("Build"));
    // Headers take no part in the selection.
    EXPECT_FALSE(view.model()->flags(view.model()->index(0)) & Qt::ItemIsSelectable);
}

// A process started without a language: the sections, the rows and the
// project menu still share one order.
TEST(DiagnosticListView, SectionsFollowTheStoreOrderInTheCLocale)
{
    const QLocale saved;
    QLocale::setDefault(QLocale::c());
    StoreFixture f;
    f.store->captureManualLog(
        QStringList{
            QStringLiteral("/App/Zebra.swift:1:1: warning: zebra"),
            QStringLiteral("/App/\u00C9clair.swift:1:1: warning: eclair"),
            QStringLiteral("/App/apple.swift:1:1: warning: apple"),
        }
            .join(u'\n'),
        QStringLiteral("build.log"));
    DiagnosticListView view(*f.store);
    const QStringList rows = shownRows(view);
    QLocale::setDefault(saved);

    EXPECT_EQ(
        rows,
        (QStringList{QStringLiteral("== APPLE.SWIFT"), QStringLiteral("apple"), QStringLiteral("== \u00C9CLAIR.SWIFT"),
                     QStringLiteral("eclair"), QStringLiteral("== ZEBRA.SWIFT"), QStringLiteral("zebra")}));
}

TEST(DiagnosticListView, MarksNewRowsAndListsFixedOnesFirst)
{
    StoreFixture f;
    f.captureBuild({
        QStringLiteral("/src/Kept.swift:1:1: error: kept error"),
        QStringLiteral("/src/Gone.swift:2:1: warning: gone warning"),
        QStringLiteral("/src/Legacy.swift:3:1: error: legacy error"),
    });
    DiagnosticListView view(*f.store);
    QAbstractItemModelTester tester(view.model(), QAbstractItemModelTester::FailureReportingMode::Fatal);

    // The first build of a project is its baseline: nothing new, nothing fixed.
    EXPECT_EQ(shownRows(view), (QStringList{
                                   QStringLiteral("== GONE.SWIFT"),
                                   QStringLiteral("gone warning"),
                                   QStringLiteral("== KEPT.SWIFT"),
                                   QStringLiteral("kept error"),
                                   QStringLiteral("== LEGACY.SWIFT"),
                                   QStringLiteral("legacy error"),
                               }));

    f.captureBuild({
        QStringLiteral("/src/Kept.swift:1:1: error: kept error"),
        QStringLiteral("/src/Fresh.swift:5:1: warning: fresh warning"),
    });
    settle();
    EXPECT_EQ(shownRows(view), (QStringList{
                                   QStringLiteral("== FIXED SINCE LAST BUILD"),
                                   QStringLiteral("gone warning [FIXED]"),
                                   QStringLiteral("legacy error [FIXED]"),
                                   QStringLiteral("== FRESH.SWIFT"),
                                   QStringLiteral("fresh warning [NEW]"),
                                   QStringLiteral("== KEPT.SWIFT"),
                                   QStringLiteral("kept error"),
                               }));
    const QModelIndex fixed = view.model()->index(rowWithText(view, QStringLiteral("legacy error")));
    EXPECT_EQ(fixed.data(DiagnosticListModel::SymbolRole).toString(), QStringLiteral("checkmark.circle.fill"));
}

TEST(DiagnosticListView, NarrowsTheFixedSectionBySearchAndSeverity)
{
    StoreFixture f;
    captureFixedAndNew(f);
    DiagnosticListView view(*f.store);

    f.store->setSeverityFilter({DiagnosticSeverity::error});
    settle();
    EXPECT_EQ(shownRows(view), (QStringList{
                                   QStringLiteral("== FIXED SINCE LAST BUILD"),
                                   QStringLiteral("legacy error [FIXED]"),
                                   QStringLiteral("== KEPT.SWIFT"),
                                   QStringLiteral("kept error"),
                               }));

    // A file name matches without its folder and in any letter case.
    f.store->setSeverityFilter({DiagnosticSeverity::error, DiagnosticSeverity::warning});
    f.store->setSearchText(QStringLiteral("  gone.SWIFT "));
    settle();
    EXPECT_EQ(shownRows(view), (QStringList{
                                   QStringLiteral("== FIXED SINCE LAST BUILD"),
                                   QStringLiteral("gone warning [FIXED]"),
                               }));

    f.store->setSearchText(QStringLiteral("LEGACY err")); // the message, not the file name
    settle();
    EXPECT_EQ(shownRows(view), (QStringList{QStringLiteral("== FIXED SINCE LAST BUILD"),
                                            QStringLiteral("legacy error [FIXED]")}));

    f.store->setSearchText(QStringLiteral(" \n\t "));
    settle();
    EXPECT_EQ(shownRows(view).size(), 7);
}

TEST(DiagnosticListView, ShowsTheActiveBuildEvenWhenItsRowsLookTheSame)
{
    // Two builds from the same text lay out identical rows; the list must
    // still hand out the records of the build that is active.
    StoreFixture f;
    const QString log = QStringLiteral("/src/A.swift:1:1: error: same error");
    f.store->captureManualLog(log, QStringLiteral("first.log"));
    f.store->captureManualLog(log, QStringLiteral("second.log"));
    DiagnosticListView view(*f.store);
    const QList<BuildSession> sessions = f.store->sessions();
    ASSERT_EQ(sessions.size(), 2);

    for (const BuildSession& session : sessions) {
        f.store->selectSession(session);
        settle();
        ASSERT_EQ(shownRows(view), (QStringList{QStringLiteral("== A.SWIFT"), QStringLiteral("same error")}));
        EXPECT_EQ(idOfRow(view, 1), session.diagnostics.first().id) << session.sourceName.toStdString();
    }
}

TEST(DiagnosticListView, SelectionFollowsClicksAndTheStore)
{
    StoreFixture f;
    captureFixedAndNew(f);
    // Enough diagnostics that the last one starts out of sight.
    QStringList lines;
    for (int i = 0; i < 60; ++i)
        lines.append(QStringLiteral("/src/File%1.swift:%2:1: warning: warning number %2").arg(i / 20).arg(i));
    f.captureBuild(lines);
    DiagnosticListView view(*f.store);
    view.resize(420, 300);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    settle();

    // A store change highlights the row and scrolls it into view.
    const int last = rowWithText(view, QStringLiteral("warning number 59"));
    f.store->setSelectedDiagnosticID(idOfRow(view, last));
    settle();
    EXPECT_EQ(highlightedMessage(view), QStringLiteral("warning number 59"));
    QListView* list = view.listView();
    EXPECT_TRUE(list->viewport()->rect().contains(list->visualRect(view.model()->index(last))));

    const int first = rowWithText(view, QStringLiteral("warning number 0"));
    f.store->setSelectedDiagnosticID(idOfRow(view, first));
    settle();
    EXPECT_EQ(highlightedMessage(view), QStringLiteral("warning number 0"));

    // Clicking a row writes the store; clicking a header changes nothing.
    click(view, rowWithText(view, QStringLiteral("warning number 2")));
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("warning number 2"));
    click(view, rowWithText(view, QStringLiteral("FILE0.SWIFT")));
    settle();
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("warning number 2"));
    EXPECT_EQ(highlightedMessage(view), QStringLiteral("warning number 2"));

    // A selection the rows no longer show leaves nothing highlighted.
    f.store->setSelectedDiagnosticID(std::nullopt);
    settle();
    EXPECT_EQ(highlightedMessage(view), QString());
}

TEST(DiagnosticListView, FixedRowsAreSelectableAndArrowKeysStepOverHeaders)
{
    StoreFixture f;
    captureFixedAndNew(f);
    DiagnosticListView view(*f.store);
    view.resize(420, 400);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    settle();
    QListView* list = view.listView();

    // Fixed rows can be selected like any other.
    click(view, rowWithText(view, QStringLiteral("legacy error")));
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("legacy error"));
    settle();
    // From the last fixed row past the FRESH.SWIFT header, then past KEPT.SWIFT.
    QTest::keyClick(list, Qt::Key_Down);
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("fresh warning"));
    QTest::keyClick(list, Qt::Key_Down);
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("kept error"));
    // The bottom holds.
    QTest::keyClick(list, Qt::Key_Down);
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("kept error"));

    QTest::keyClick(list, Qt::Key_Up);
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("fresh warning"));
    QTest::keyClick(list, Qt::Key_Up);
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("legacy error"));
    QTest::keyClick(list, Qt::Key_Up);
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("gone warning"));
    // The top holds too: the fixed header above is not a stop.
    QTest::keyClick(list, Qt::Key_Up);
    EXPECT_EQ(selectedMessage(*f.store), QStringLiteral("gone warning"));
    settle();
    EXPECT_EQ(highlightedMessage(view), QStringLiteral("gone warning"));
}

TEST(DiagnosticListView, AHiddenPageCatchesUpWhenShown)
{
    StoreFixture f;
    f.captureBuild({QStringLiteral("/src/Kept.swift:1:1: error: kept error")});
    QStackedWidget pages;
    auto* other = new QWidget(&pages);
    auto* view = new DiagnosticListView(*f.store, &pages);
    pages.addWidget(view);
    pages.addWidget(other);
    pages.setCurrentWidget(other);
    pages.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&pages));

    f.captureBuild({
        QStringLiteral("/src/Kept.swift:1:1: error: kept error"),
        QStringLiteral("/src/Fresh.swift:5:1: warning: fresh warning"),
    });
    f.store->setSelectedDiagnosticID(f.store->visibleDiagnostics().last().id);
    settle();
    pages.setCurrentWidget(view);
    settle();
    EXPECT_EQ(shownRows(*view), (QStringList{
                                    QStringLiteral("== FRESH.SWIFT"),
                                    QStringLiteral("fresh warning [NEW]"),
                                    QStringLiteral("== KEPT.SWIFT"),
                                    QStringLiteral("kept error"),
                                }));
    EXPECT_EQ(highlightedMessage(*view), QStringLiteral("fresh warning"));
}

TEST(CleanBuildPanel, ShowsTheStoreMessageAndWhatWasFixed)
{
    StoreFixture f;
    f.store->captureManualLog(QStringLiteral("nothing to see"), QStringLiteral("quiet.log"));
    CleanBuildPanel panel(*f.store);
    panel.resize(700, 600);
    panel.show();
    settle();
    const auto hasFixedBox = [&] {
        const QStringList texts = visibleLabelTexts(panel);
        return std::any_of(texts.cbegin(), texts.cend(),
                           [](const QString& t) { return t.endsWith(QStringLiteral("FIXED SINCE LAST BUILD")); });
    };
    EXPECT_TRUE(visibleLabelTexts(panel).contains(QStringLiteral("No matching diagnostics in this build.")));
    EXPECT_FALSE(hasFixedBox());

    // The first Xcode build of a project sets the baseline message, still
    // without a fixed box.
    f.captureBuild({});
    settle();
    const QString project = f.store->activeSession()->projectName;
    EXPECT_TRUE(visibleLabelTexts(panel).contains(u"Build captured. Baseline established for " + project + u'.'));
    EXPECT_FALSE(hasFixedBox());

    QStringList previous;
    for (int i = 1; i <= 7; ++i) {
        const QString severity = i % 2 ? QStringLiteral("warning") : QStringLiteral("error");
        previous.append(QStringLiteral("/src/Old.swift:%1:1: %2: old problem %1").arg(i).arg(severity));
    }
    f.captureBuild(previous);
    f.captureBuild({});
    settle();
    const QStringList texts = visibleLabelTexts(panel);
    EXPECT_TRUE(texts.contains(QStringLiteral("CLEAN BUILD")));
    EXPECT_TRUE(texts.contains(u"Compared with the previous " + project + u" build."));
    EXPECT_TRUE(texts.contains(QStringLiteral("7 FIXED SINCE LAST BUILD")));
    for (int i = 1; i <= 5; ++i)
        EXPECT_TRUE(texts.contains(QStringLiteral("old problem %1").arg(i))) << i;
    EXPECT_FALSE(texts.contains(QStringLiteral("old problem 6")));

    // The box ignores the severity filter and the search: the count stays whole.
    f.store->setSeverityFilter({DiagnosticSeverity::error});
    f.store->setSearchText(QStringLiteral("nothing like this"));
    settle();
    EXPECT_TRUE(visibleLabelTexts(panel).contains(QStringLiteral("7 FIXED SINCE LAST BUILD")));
    EXPECT_TRUE(visibleLabelTexts(panel).contains(QStringLiteral("old problem 1")));
}
