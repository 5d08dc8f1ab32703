// An empty working directory for the length of a test. A death test's child enters its parent's directory instead of making one,
// so that the parent can look at what the child left.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

class TestFolder : public testing::Test
{
protected:
    void SetUp( ) override
    {
        _old = std::filesystem::current_path( );
        if( const char* const parents = getenv( VARIABLE ) )
        {
            std::filesystem::current_path( parents );
            return;
        }
        std::string pattern = ( std::filesystem::temp_directory_path( ) / "velmora_test_XXXXXX" ).string( );
        ASSERT_TRUE( mkdtemp( pattern.data( ) ) );
        _folder = pattern;
        setenv( VARIABLE, pattern.c_str( ), 1 );
        std::filesystem::current_path( _folder );
    }
    void TearDown( ) override
    {
        std::filesystem::current_path( _old );
        if( _folder.empty( ) ) return;
        unsetenv( VARIABLE );
        std::filesystem::remove_all( _folder );
    }

    static void write( const std::string& path, const std::string& text )
    {
        std::ofstream( path, std::ios::binary ) << text;
    }
    static std::string read( const std::string& path )
    {
        std::ostringstream text;
        text << std::ifstream( path, std::ios::binary ).rdbuf( );
        return text.str( );
    }
    // Names in the directory that end so, sorted.
    static std::vector<std::string> list( const std::string& end )
    {
        std::vector<std::string> names;
        for( const auto& entry : std::filesystem::directory_iterator( "." ) )
            if( entry.path( ).filename( ).string( ).ends_with( end ) )
                names.push_back( entry.path( ).filename( ).string( ) );
        std::sort( names.begin( ), names.end( ) );
        return names;
    }

    // A pipe with a name, open at both ends; a death test's child opens its parent's.
    static int openPipe( const std::string& path )
    {
        mkfifo( path.c_str( ), 0600 );
        return open( path.c_str( ), O_RDWR );
    }
    // What comes first on a pipe, which is closed; empty when nothing came before the deadline.
    static std::string readPipe( int pipe )
    {
        constexpr int DEADLINE = 20000;
        pollfd source = { pipe, POLLIN, 0 };
        char text[256];
        const ssize_t got = poll( &source, 1, DEADLINE ) == 1 ? ::read( pipe, text, sizeof( text ) ) : 0;
        close( pipe );
        return std::string( text, got > 0 ? static_cast<size_t>( got ) : 0 );
    }
    // A file with the lock of a running instance, in the test itself and not in its child.
    static int holdFile( const std::string& path, const std::string& text )
    {
        write( path, text );
        const int holder = open( path.c_str( ), O_RDWR | O_CLOEXEC );
        flock( holder, LOCK_EX | LOCK_NB );
        return holder;
    }

private:
    static constexpr const char* VARIABLE = "VELMORA_TEST_FOLDER";
    std::filesystem::path _old;
    std::filesystem::path _folder;
};
