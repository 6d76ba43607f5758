// Test entry point: an offscreen QApplication, so that code which needs
// widgets, fonts or an event loop runs without a display.
#include <cstdlib>

#include <QApplication>
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
