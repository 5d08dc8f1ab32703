// Fills a blackboard with a plausible day, so that a skin can be judged without a server.
#pragma once

#include "runtime/GInstance.h"

// `sample` names the day: "day" is the plain one; false when there is none of that name. `buddies`: how many stand on the list, as
// many as the day has when below 0. `chats`: with each of them something has been said. Pictures are read from the working directory.
bool GSkinFillSample( GInstance* instance, const GString& sample, int buddies, bool chats );
// Lines "name: value"; those that begin with "#" are passed over. False when the file cannot be read.
bool GSkinFillFile( GInstance* instance, const GString& file );
