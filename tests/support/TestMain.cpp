// Entry point of every unit-test program: a warning in the log that the test did not announce fails it.
#include "support/TestLog.h"

#include <gtest/gtest.h>

int main( int argc, char** argv )
{
    testing::InitGoogleTest( &argc, argv );
    testing::GTEST_FLAG( death_test_style ) = "threadsafe";
    TestLog::install( );
    return RUN_ALL_TESTS( );
}
