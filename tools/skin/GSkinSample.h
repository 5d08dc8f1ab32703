// Fills a blackboard with a plausible day, so that a skin can be judged without a server.
#pragma once

#include "runtime/GInstance.h"

// `buddies`: how many stand on the list, 0 for the empty one; `chats`: with each of them something has been said. Pictures are read from
// the working directory.
void GSkinFillSample( GInstance* instance, int buddies, bool chats );
