#include "client/signalling/GStunTest.h"

#include "platform/GNet.h"
#include "protocol/GProtocol.h"

namespace
{
bool succeeded( const GHTTPHeaders& response )
{
    return response.getResponse( ) == GHTTP_SUCCESS;
}
} // namespace

void GStunTest::setHosts( const GStringList& stunHostList )
{
    GVERIFY( stunHostList.size( ) >= 4 );
    size_t i = 0;
    for( const GWString& host : stunHostList )
    {
        if( i >= _stunHostArray.size( ) ) return;
        _stunHostArray[i++] = host;
    }
}

void GStunTest::clear( )
{
    _stunHostArray.fill( { } );
    clearResponses( );
}

void GStunTest::clearResponses( )
{
    _directSTUNResponse.clear( );
    _indirectPunchedSTUNResponse.clear( );
    _indirectUnpunchedSTUNResponse.clear( );
}

bool GStunTest::store( const GWString& fromHost, const GHTTPHeaders& response )
{
    if( GCaseEquals( fromHost, getDirectHost( ) ) )
    {
        const GWString globalHost = response.get( GProtocol::GLOBAL_HOST );
        if( succeeded( response ) && !GNetIsUnicastHost( globalHost ) )
        {
            GLOG( u"WARNING Received 'STUN' response with invalid global host (", globalHost, u"), ignoring." );
            return false;
        }
        _directSTUNResponse = response;
    }
    else if( GCaseEquals( fromHost, getPunchedHost( ) ) )
        _indirectPunchedSTUNResponse = response;
    else if( GCaseEquals( fromHost, getUnpunchedHost( ) ) )
        _indirectUnpunchedSTUNResponse = response;
    else
    {
        GLOG( u"WARNING Received 'STUN' response from unknown remote host (", fromHost, u"), ignoring." );
        return false;
    }
    return true;
}

bool GStunTest::isComplete( ) const
{
    return hasDirect( ) && succeeded( _indirectPunchedSTUNResponse ) && succeeded( _indirectUnpunchedSTUNResponse );
}

bool GStunTest::hasDirect( ) const
{
    return succeeded( _directSTUNResponse );
}

bool GStunTest::hasAnyIndirect( ) const
{
    return succeeded( _indirectPunchedSTUNResponse ) || succeeded( _indirectUnpunchedSTUNResponse );
}

GWString GStunTest::getGlobalHost( ) const
{
    return _directSTUNResponse.get( GProtocol::GLOBAL_HOST );
}

GWString GStunTest::classify( const GWString& localHost ) const
{
    const bool punched = succeeded( _indirectPunchedSTUNResponse );
    const bool unpunched = succeeded( _indirectUnpunchedSTUNResponse );
    if( !hasDirect( ) )
    {
        GVERIFY_TEXT( !punched, "!_indirectPunchedSTUNResponse.succeeded( )" );
        GVERIFY_TEXT( !unpunched, "!_indirectUnpunchedSTUNResponse.succeeded( )" );
        return u"FIREWALL";
    }
    if( GCaseEquals( getGlobalHost( ), localHost ) )
    {
        GVERIFY_TEXT( punched, "_indirectPunchedSTUNResponse.succeeded( )" );
        GVERIFY_TEXT( unpunched, "_indirectUnpunchedSTUNResponse.succeeded( )" );
        return u"PUBLIC";
    }
    if( unpunched )
    {
        GVERIFY_TEXT( punched, "_indirectPunchedSTUNResponse.succeeded( )" );
        return u"UNRESTRICTED";
    }
    return punched ? u"RESTRICTED" : u"SYMMETRIC";
}
