// Text, list, number, byte-buffer and file helpers. Every helper reports by its result and never throws; the preconditions that
// a header comment names abort. Relative paths are relative to the working directory; "/" separates.
#pragma once

#include "base/GPortable.h"
#include "base/GTypes.h"

// ---- Text.
// Decodes one to three byte sequences; a lead byte of four, a stray continuation or a truncated sequence gives "X". With
// GTextKeepAstral( true ) four-byte sequences become two units instead (and back).
GWString GUTF8ToWide( std::string_view text );
void GUTF8ToWide( std::string_view text, GWString& out ); // The same into a string that keeps its room.
// The same into room for as many units as `text` has bytes; the units written.
size_t GUTF8ToWide( std::string_view text, char16_t* out );
GString GWideToUTF8( GWStringView text );
void GWideToUTF8( GWStringView text, GString& out ); // The same into a string that keeps its room.
void GTextKeepAstral( bool keep );
// The 26 ASCII capitals only.
GWString GToLower( GWStringView text );
GString GToLower( std::string_view text );
bool GCaseEquals( GWStringView a, GWStringView b );
GWString GTrim( GWStringView text );
// Optional "-", then decimal digits up to the first other character; 0 when there are none. Saturates at 64 bits.
int64_t GCalc( GWStringView text );
int64_t GCalc( std::string_view text );
// True for "true" in any case, or a number above 0.
bool GTest( GWStringView text );
bool GTest( std::string_view text );
// Tab, newline, return and backslash become two-byte escapes; any character of `extra` gets a backslash.
GString GEscape( std::string_view text, std::string_view extra );
void GAppendEscaped( GString& out, std::string_view text, std::string_view extra ); // The same at the end of `out`.
GString GUnescape( std::string_view text );
void GUnescape( std::string_view text, GString& out ); // The same into a string that keeps its room.
// Keeps a-z 0-9 - _ @ . ; capitals are lower-cased, everything else is dropped.
GWString GSanitizeName( GWStringView text );
// Cuts at any delimiter, trims each item, drops the empty ones. Default delimiters: tab, newline, comma, semicolon.
GStringList GSplitList( GWStringView text, GWStringView delimiters = u"\t\n,;" );
// The same one by one: moves `begin`, which starts at 0, behind the next item and gives the item as a view; false when none is left.
bool GSplitNext( GWStringView text, size_t& begin, GWStringView& item, GWStringView delimiters = u"\t\n,;" );
GWString GJoinList( const GStringList& list );
bool GListContains( const GStringList& list, GWStringView item );
// Not empty and not "0.0.0.0:0"; the form of the text is not tested.
bool GValidHost( GWStringView text );
GWString GFormatSize( int64_t bytes );
GWString GFormatDouble( double value, int decimals );
GWString GNumber( int64_t value );
// 12-hour text "h:mmam" of a time in microseconds since 1601-01-01.
GWString GTimeComposeTime( uint64_t time );

// ---- Names from the wire.
// A user id equals its own sanitised form and holds one "@" with something on both sides; as long as an address of mail at most.
bool GValidUserID( GWStringView text );
// 1 to 64 letters, digits and "-".
bool GValidDeviceID( GWStringView text );

// ---- Byte buffers, little-endian.
void GSerialize( const void* value, int valueSize, GString& buffer ); // Precondition: "value && valueSize >= 0".
void GSerialize( uint64_t value, GString& buffer );
void GSerialize( uint32_t value, GString& buffer );
// Bytes taken, or 0 when `length` is too small.
int GDeserialize( const char* buffer, int length, uint64_t& out );
int GDeserialize( const char* buffer, int length, uint32_t& out );
// Removes `num` bytes from the front. Precondition: "num <= (int)buffer.size( )".
void GConsume( GString& buffer, int num );

// ---- Files.
bool GFileExists( const GWString& path );
// Plain files only, since a device or a pipe may never end; false, and nothing in `out`, for all else.
bool GFileLoad( const GWString& path, GString& out );
// Only relative paths: a leading "/" or "\" aborts. Missing directories are created.
bool GFileSave( const GWString& path, const char* buffer, int64_t length );
bool GFileAppend( const GWString& path, const char* buffer, int64_t length );
bool GFileDelete( const GWString& path );
bool GFileMove( const GWString& fromPath, const GWString& toPath );
bool GDirCreateRecursive( const GWString& path );
bool _GFileValidateDir( const GWString& filePath );
// Names of the plain files in `directory` that begin with `prefix`, sorted.
GStringList GFileList( const GWString& directory, const GWString& prefix );
