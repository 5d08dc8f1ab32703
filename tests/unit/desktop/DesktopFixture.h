// Brings the desktop up for a test and runs its message loop until something has happened, with a deadline.
#pragma once

#include "libvorn/src/platform/desktop/GDesktop_Qt.h"
#include "support/TestLog.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

class DesktopFixture : public testing::Test
{
protected:
    void SetUp( ) override { GDesktopOpen( ); }

    // False when `done` did not come true within ten seconds.
    static bool pumpUntil( const std::function<bool( )>& done )
    {
        constexpr int MOST_MILLISECONDS = 10000;
        QTimer waker; // `done` may look at what sends no event.
        waker.start( 5 );
        const QDeadlineTimer deadline( MOST_MILLISECONDS );
        while( !done( ) )
        {
            if( deadline.hasExpired( ) ) return false;
            QCoreApplication::processEvents( QEventLoop::WaitForMoreEvents );
        }
        return true;
    }
    // Runs all that is under way now.
    static void pumpAll( )
    {
        bool reached = false;
        GDesktopPost( [&reached]( ) { reached = true; } );
        EXPECT_TRUE( pumpUntil( [&reached]( ) { return reached; } ) );
    }
};
