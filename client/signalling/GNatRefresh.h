// The search for the lifetime of the NAT mapping: trials whose delay doubles after an answer and halves after silence. The host
// that is asked answers only after the delay, so an answer proves that a mapping idle for that long survives. All times are
// microseconds; no thread; one clock, that of GIntervalTimer.
#pragma once

#include "runtime/GIntervalTimer.h"

class GNatRefresh
{
public:
    static constexpr int64_t FIRST_DELAY = 1000000;
    // How much later than its delay an answer may come.
    static constexpr int64_t GRACE = 2000000;

    // With the remedy, trials stop doubling at 64 s, only the newest answer counts, and the period of the mapping PINGs is the last
    // delay that succeeded, at most 25 s, instead of the one on trial.
    void setRobust( bool robust ) { _robust = robust; }
    void clear( );
    // A trial has been sent under this CSeq.
    void begin( int64_t delay, int cseq );
    // True once when the trial on its way has failed.
    bool hasFailed( ) { return _natRefreshTimer.hasElapsed( ); }
    int64_t getDelayOnTrial( ) const { return _natRefreshTimer.getDuration( ) - GRACE; }
    // False for the answer to an older trial, which the remedy passes over.
    bool isNewest( int cseq ) const { return !_robust || cseq == _cseq; }
    // The delay to try after `delay` was answered. It is taken as the 32-bit number that the message's reader makes of it.
    int64_t afterSuccess( int32_t delay );
    // The delay to try after the one on trial stayed unanswered.
    int64_t afterFailure( ) const;
    // Seconds between two mapping PINGs; `onTrial` is the period that is shown.
    int64_t getPingPeriod( int64_t onTrial ) const;

private:
    GIntervalTimer _natRefreshTimer{ FIRST_DELAY };
    int64_t _lastSuccess = FIRST_DELAY;
    int _cseq = 0;
    bool _robust = false;
};
