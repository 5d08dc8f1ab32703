// What the skin's benchmark measures itself by: the toolkit's own labels, the bare parser of the file, and one grammar that all
// expressions share.
#pragma once

#include "base/GTypes.h"

#include <QImage>

#include <map>
#include <memory>
#include <vector>

class QLabel;
class QWidget;

namespace Bench
{
// A thousand labels in a grid: a widget each, as the toolkit's programs have them.
class Labels
{
public:
    static constexpr int COUNT = 1000;
    Labels( );
    ~Labels( );
    // New texts for `count` of them, and the layout that this leads to.
    void change( int count, int round );
    // All of it, on a picture.
    void paint( );

private:
    std::unique_ptr<QWidget> _window;
    std::vector<QLabel*> _labels;
    QImage _image;
};

// Parses the file and looks at nothing; the number of its elements.
int parseOnly( const GWString& path );

// The expression grammar as rules of Spirit's classic kind, built once and run over the text each time; its value is run over again
// while there are names in it.
class SharedGrammar
{
public:
    SharedGrammar( );
    ~SharedGrammar( );
    GWString expand( const std::map<GWString, GWString>& names, const GWString& text ) const;

private:
    struct Rules;
    std::unique_ptr<Rules> _rules;
};
} // namespace Bench
