#include <QtGlobal>

#ifdef CORVANE_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

#include <gtest/gtest.h>

int main(int argc, char* argv[])
{
    // Test binaries may be started without ctest's environment (by hand, or
    // by test discovery), and must never need a display.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    ::testing::InitGoogleTest(&argc, argv);
    TestApplication app(argc, argv);
    return RUN_ALL_TESTS();
}
