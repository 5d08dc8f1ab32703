// The one message of the system: commands on queues, signalling, exchanges with servers. A first line under the empty name,
// headers with exact names, and content parts whose sizes stand in "Content-Length". A plain value without a lock.
#pragma once

#include "base/GUtil.h"

#include <map>

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
    const std::map<GWString, GWString, std::less<>>& headers( ) const { return _headers; }

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
    void clear( );
    // The header text for logs; values of names that end in "password" are masked.
    GWString getDebugText( ) const;

private:
    void _debugUpdate( );

    std::map<GWString, GWString, std::less<>> _headers;
    GString _debugText;
    std::vector<GString> _contentArray;
};
