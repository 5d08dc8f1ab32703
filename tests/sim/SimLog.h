// The log of a simulation: whatever says WARNING or ERROR and was not announced is kept, with the moment and the program that said it.
#pragma once

#include "base/GPortable.h"

#include <map>

class SimLog
{
public:
    SimLog( );
    ~SimLog( ); // Gives the hook back.
    SimLog( const SimLog& ) = delete;
    SimLog& operator=( const SimLog& ) = delete;

    // Lines that hold the text are no surprise from now on.
    void allow( const GString& text ) { _allowed.push_back( text ); }
    // Whose lines come next.
    void enter( const GString& program ) { _program = program; }
    const std::vector<GString>& surprises( ) const { return _surprises; }
    void add( const GString& line );

private:
    GPortableHooks _before;
    bool _echo; // VELMORA_SIM_ECHO: every line, those of detail too, goes to standard error.
    std::vector<GString> _allowed;
    std::vector<GString> _surprises;
    GString _program;
};
