#include "platform/GLibrary.h"

#include <cstring>
#include <gtest/gtest.h>

TEST( GLibrary, AFunctionIsFoundAndWorks )
{
    const auto version = reinterpret_cast<const char* (*)( )>( GLibraryFind( "libz.so.1", "zlibVersion" ) );
    ASSERT_TRUE( version );
    EXPECT_TRUE( std::strchr( version( ), '.' ) );
}

TEST( GLibrary, WhatIsNotThereIsNull )
{
    EXPECT_FALSE( GLibraryFind( "libz.so.1", "no_such_function" ) );
    EXPECT_FALSE( GLibraryFind( "libno_such_library.so.9", "zlibVersion" ) );
}
