// Tells whether there is something to save: beside GInstance.h, which nearly everything includes.
#pragma once

#include <cstdint>

// Grows with each change of what GInstance::save would write, of any blackboard. Any thread, no lock.
uint64_t GInstanceGetSettingsGeneration( );
