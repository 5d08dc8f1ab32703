// The client's one UDP port, or relayed TCP connection, made to look like many queues. GDispatchService reads the socket and fills
// buckets; every service takes its own class of datagrams and sends through send(). The sockets are borrowed, never owned.
// Locks (_sendMutex, _recvMutex, the object's own for the pool) are never nested. Times are microseconds.
#pragma once

#include "platform/GNet.h"
#include "runtime/GThreadSafeObject.h"

#include <array>
#include <deque>
#include <mutex>

// One received datagram. It belongs to whoever took it from a list and goes back by returnEmptyBucket; its buffer keeps its
// capacity through reuse.
struct GMegaPortBucket
{
    GWString localHost;
    GWString remoteHost;
    GString buffer;
};

class GMegaPort : public GThreadSafeObject
{
public:
    explicit GMegaPort( const GWString& name );
    ~GMegaPort( ) override;
    void invariantTest( ) const override;

    // Dispatch service only.
    void setUDPPort( GNetUDPPort* udpPort );
    void setTCPSocket( GNetTCPSocket* tcpSocket, const GWString& globalHost );
    GMegaPortBucket* getEmtpyBucket( );
    void fillSIPBucket( GMegaPortBucket* bucket );
    void fillRTPBucket( GMegaPortBucket* bucket );
    void reset( );

    GWString getLocalHost( ) const;
    GWString getGlobalHost( ) const;
    void returnEmptyBucket( GMegaPortBucket* bucket );
    GMegaPortBucket* getSIPBucket( );                 // Null when empty.
    GMegaPortBucket* getRTPBucket( int payloadType ); // Null when empty.
    // Hints only: the caller drains its list afterwards.
    void waitForSIPBucket( int64_t timeout );
    void waitForRTPBucket( int64_t timeout, int payloadType );
    void waitForRTPBucket( int64_t timeout, int payloadTypeA, int payloadTypeB );

    // A `from` that is empty or the global host goes by the relay when there is one, any other by the UDP port. Failures are logged.
    void send( const GWString& from, const GWString& to, const char* buffer, int length );
    // The remedy for the relay: one buffered writer that drops whole messages above 256 KiB.
    void setRobust( bool robust );
    // Pushes what the relay's buffer still holds; the dispatch loop calls it.
    void flush( );
    // Lets go of the relay; what its buffer still held, for the writer that takes over.
    GString takeUnsent( );

private:
    struct BucketList
    {
        std::deque<GMegaPortBucket*> buckets;
        GEvent event = nullptr;
    };
    GMegaPortBucket* _append( BucketList& list, GMegaPortBucket* bucket );
    GMegaPortBucket* _take( BucketList& list );
    void _sendRelayed( const GWString& to, const char* buffer, int length );
    void _pushRelayed( );

    GWString _name;
    GMutex _sendMutex = nullptr;
    GMutex _recvMutex = nullptr;
    GNetUDPPort* _udpPort = nullptr;
    GNetTCPSocket* _tcpSocket = nullptr;
    BucketList _sipBucketList;
    std::vector<BucketList> _rtpBucketListArray;
    std::deque<GMegaPortBucket*> _emptyBucketList;
    int _numBucketsCreated = 0;
    GWString _localHost;
    GWString _globalHost;
    bool _robust = false;
    GString _relayBuffer;
};
