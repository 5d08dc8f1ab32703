// Makes sound a little shorter or longer without being heard: in what is quiet by leaving out or repeating samples, in what is loud by
// a change of pitch of at most half a percent. Plain functions on 16-bit samples.
#pragma once

#include "base/GTypes.h"

// The greatest amplitude.
int GVoicePeak( const int16_t* samples, int count );
// Appends `count` samples as `count` - `less` ones; a negative `less` makes them more. `quiet`: cut out of the middle, or repeated there;
// up to half of the sound. Otherwise each is drawn between its neighbours; `less` is held to a two-hundredth of the sound. Tells what
// was really left out.
int GVoiceShorten( const int16_t* samples, int count, int less, bool quiet, GString& out );
// Lets the sound come up from silence, or go down to it: from `from` to `to` 256ths of its loudness.
void GVoiceFade( int16_t* samples, int count, int from, int to );
