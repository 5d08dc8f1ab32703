// The one message of the system: commands on queues, signalling, exchanges with servers. A first line under the empty name,
// headers with exact names, and content parts whose sizes stand in "Content-Length". A plain value without a lock. A message that
// is read into again and again keeps its room and soon takes nothing from the heap.
#pragma once

#include "base/GUtil.h"
#include "runtime/GHeaderTable.h"

constexpr int GHTTP_SUCCESS = 200;

class GHTTPHeaders
{
public:
    GHTTPHeaders( ) = default;
    explicit GHTTPHeaders( GWStringView method );

    void setMethod( GWStringView method );           // "<method> / HTTP/1.1"
    void setResponse( int code, GWStringView text ); // "HTTP/1.1 <code> <text>"
    GWString getMethod( ) const;
    GWString getMethod( GWString& uri ) const;
    bool isMethod( GWStringView method ) const;
    int getResponse( ) const; // 0 for every request.
    int getResponse( GWString& text ) const;

    void set( GWStringView name, GWStringView value );
    void set( GWStringView name, const GStringList& list );
    void set( GWStringView name, int64_t value );
    GWString get( GWStringView name ) const; // Empty when absent.
    bool get( GWStringView name, GStringList& list ) const;
    bool contains( GWStringView name ) const;
    void erase( GWStringView name );
    void insert( GWStringView name, GWStringView item ); // Precondition "!name.empty( )".
    void remove( GWStringView name, GWStringView item );
    bool test( GWStringView name ) const;
    int64_t calc( GWStringView name ) const;
    const GHeaderTable& headers( ) const { return _headers; } // The first line, with the empty name, comes first.

    void addContent( const char* data, int length );
    void addContent( const GString& data );
    bool hasContent( ) const { return !_contentArray.empty( ); }
    int getContentCount( ) const { return static_cast<int>( _contentArray.size( ) ); }
    const GString& getContent( int index ) const; // Aborts out of range.

    void serialize( GString& out ) const;
    GString serialize( ) const;
    // Bytes consumed, or 0 when the message is not complete or not one: the caller keeps the bytes. Never reads past `length`.
    int deserialize( const char* buffer, int length );
    int deserialize( const GString& text );
    // How many bytes the message takes whose first bytes these are: 0 while its header is not complete, -1 when no bytes to follow
    // can make a message of them.
    static int64_t measure( const char* buffer, int length );
    void clear( );
    // The header text for logs; values of names that end in "password" are masked.
    GWString getDebugText( ) const;

private:
    // Strings of earlier parts; a copy of a message does without.
    struct Spare
    {
        Spare( ) = default;
        Spare( const Spare& ) {}
        Spare( Spare&& ) = default;
        Spare& operator=( const Spare& ) { return *this; }
        Spare& operator=( Spare&& ) = default;
        ~Spare( ) = default;
        std::vector<GString> parts;
    };
    int _getResponse( GWStringView& text ) const;
    void _addPart( const char* data, size_t length );
    void _appendLines( GString& out, bool masked ) const;
    void _debugUpdate( );

    GHeaderTable _headers;
    GString _debugText; // What the lines of the message are, as they may be logged: a crash dump shows it.
    std::vector<GString> _contentArray;
    Spare _spare;
};
