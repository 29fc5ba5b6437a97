#include "WindowChrome.h"
#include "CorvaneApp.h"
#include "ShellFixtures.h"

#include <QTest>
#include <QWindow>

#include <gtest/gtest.h>

using namespace corvane;
using namespace corvane::test;

namespace {

using Area = WindowChrome::Area;
using Hit = WindowChrome::Hit;

class WindowChromeTest : public OpenWindow {
protected:
    WindowChromeTest()
    {
        window->setMinimumSize(CorvaneApp::minimumWidth, CorvaneApp::minimumHeight);
        chrome = new WindowChrome(*window);
        window->show();
        EXPECT_TRUE(QTest::qWaitForWindowExposed(window.get()));
        settle();
    }

    QPoint centreOf(const QString& name) const
    {
        const QWidget* widget = find<QWidget>(name);
        return widget->mapTo(window.get(), widget->rect().center());
    }
    // A point of the header between the brand and the first control.
    QPoint headerGap() const
    {
        const QWidget* wordmark = find<QWidget>(QStringLiteral("wordmark"));
        return QPoint(wordmark->mapTo(window.get(), QPoint(wordmark->width() + 60, 0)).x(), 34);
    }

    WindowChrome* chrome = nullptr;
};

TEST_F(WindowChromeTest, EdgesResizeTheHeadersEmptyAreasMoveAndControlsStayClickable)
{
    ASSERT_EQ(window->size(), QSize(1280, 800));
    EXPECT_TRUE(window->windowFlags() & Qt::FramelessWindowHint);
    const struct {
        QPoint point;
        Hit hit;
    } cases[] = {
        {{0, 0}, {Area::resize, Qt::TopEdge | Qt::LeftEdge}},
        {{640, 2}, {Area::resize, Qt::TopEdge}},
        {{1275, 10}, {Area::resize, Qt::TopEdge | Qt::RightEdge}},
        {{1279, 400}, {Area::resize, Qt::RightEdge}},
        {{1279, 799}, {Area::resize, Qt::BottomEdge | Qt::RightEdge}},
        {{640, 797}, {Area::resize, Qt::BottomEdge}},
        {{2, 790}, {Area::resize, Qt::BottomEdge | Qt::LeftEdge}},
        {{3, 400}, {Area::resize, Qt::LeftEdge}},
        {centreOf(QStringLiteral("wordmark")), {Area::move, {}}},
        {headerGap(), {Area::move, {}}},
        {centreOf(QStringLiteral("optionsButton")), {Area::control, {}}},
        {centreOf(QStringLiteral("searchField")), {Area::control, {}}},
        {centreOf(QStringLiteral("severityPicker")), {Area::control, {}}},
        {centreOf(QStringLiteral("closeButton")), {Area::control, {}}},
        {{640, 400}, {Area::content, {}}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(chrome->hitTest(c.point), c.hit) << c.point.x() << ',' << c.point.y();

    // A maximised window has no edges to drag; its corner moves it.
    window->showMaximized();
    settle();
    EXPECT_EQ(chrome->hitTest({1, 1}), (Hit{Area::move, {}}));
}

TEST_F(WindowChromeTest, ButtonsSitAtTheHeadersEndAndMinimiseMaximiseAndClose)
{
    const QWidget* buttons = find<QWidget>(QStringLiteral("windowButtons"));
    const QWidget* options = find<QWidget>(QStringLiteral("optionsButton"));
    EXPECT_GT(buttons->mapTo(window.get(), QPoint()).x(), options->mapTo(window.get(), QPoint()).x());

    auto* maximise = find<QAbstractButton>(QStringLiteral("maximiseButton"));
    maximise->click();
    EXPECT_TRUE(window->isMaximized());
    EXPECT_EQ(maximise->accessibleName(), QStringLiteral("Restore"));
    maximise->click();
    EXPECT_FALSE(window->isMaximized());
    EXPECT_EQ(maximise->accessibleName(), QStringLiteral("Maximise"));

    // The minimum size holds for the frameless window too.
    window->resize(600, 400);
    EXPECT_EQ(window->size(), QSize(CorvaneApp::minimumWidth, CorvaneApp::minimumHeight));
    EXPECT_EQ(window->windowHandle()->minimumSize(), QSize(CorvaneApp::minimumWidth, CorvaneApp::minimumHeight));

    click(QStringLiteral("minimiseButton"));
    EXPECT_TRUE(window->windowState() & Qt::WindowMinimized);
    window->showNormal();
    click(QStringLiteral("closeButton"));
    EXPECT_FALSE(window->isVisible());
}

TEST_F(WindowChromeTest, DoubleClickMaximisesAndADragThePlatformRefusesBringsBackTheDecorations)
{
    QWindow* handle = window->windowHandle();
    const QPoint gap = headerGap();
    QTest::mouseDClick(handle, Qt::LeftButton, {}, gap);
    settle();
    EXPECT_TRUE(window->isMaximized());
    EXPECT_TRUE(chrome->drawsTitleBar());
    window->showNormal();
    settle();

    // The offscreen platform moves no windows, as some desktops cannot.
    QTest::mousePress(handle, Qt::LeftButton, {}, gap);
    QTest::mouseMove(handle, gap + QPoint(40, 10));
    QTest::mouseRelease(handle, Qt::LeftButton, {}, gap + QPoint(40, 10));
    settle();
    EXPECT_FALSE(chrome->drawsTitleBar());
    EXPECT_FALSE(window->windowFlags() & Qt::FramelessWindowHint);
    EXPECT_TRUE(window->isVisible());
    EXPECT_FALSE(shows(QStringLiteral("windowButtons")));
    EXPECT_EQ(chrome->hitTest({0, 0}), Hit{});
}

} // namespace
