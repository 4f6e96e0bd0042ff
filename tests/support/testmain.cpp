#include <gtest/gtest.h>

#ifdef KLANGOR_WINDOW_TESTS
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

// One application object for the whole run: the window's tests need widgets, the others only
// an event loop and the program's folder.
int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    TestApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
