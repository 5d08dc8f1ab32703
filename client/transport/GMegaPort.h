// The client's one UDP port, or relayed TCP connection, made to look like many queues. GDispatchService reads the socket and fills
// buckets; every service takes its own class of datagrams and sends through send(). The sockets are borrowed, never owned.
// Locks (_sendMutex, _recvMutex, the object's own for the pool) are never nested. Times are microseconds.
#pragma once

#include "client/transport/GMegaPortBucket.h"
#include "runtime/GThreadSafeObject.h"

#include <span>

class GMegaPort : public GThreadSafeObject
{
public:
    explicit GMegaPort( const GWString& name );
    ~GMegaPort( ) override;
    void invariantTest( ) const override;

    // Dispatch service only.
    void setUDPPort( GNetUDPPort* udpPort );
    // `unsent`: the rest of a message whose beginning another writer has sent; only the remedy's writer can go on with it.
    void setTCPSocket( GNetTCPSocket* tcpSocket, const GWString& globalHost, const GString& unsent = { } );
    GMegaPortBucket* getEmtpyBucket( );
    int getBucketCount( ) const { return _numBucketsCreated; } // All that were ever made: none is freed.
    // Fills the null entries among the `count` ones.
    void getEmptyBuckets( GMegaPortBucket** buckets, int count );
    void fillSIPBucket( GMegaPortBucket* bucket );
    void fillRTPBucket( GMegaPortBucket* bucket );
    // What is filled in between wakes its waiters once, at the end. For the one thread that fills.
    void beginFill( );
    void endFill( );
    void reset( );

    GWString getLocalHost( ) const;
    GWString getGlobalHost( ) const;
    void returnEmptyBucket( GMegaPortBucket* bucket );
    GMegaPortBucket* getSIPBucket( );                 // Null when empty.
    GMegaPortBucket* getRTPBucket( int payloadType ); // Null when empty.
    // Hints only: the caller drains its list afterwards.
    void waitForSIPBucket( int64_t timeout );
    // Ends the wait for signalling when it is set. Lives as long as this object.
    GEvent getSIPEvent( ) const { return _sipBucketList.event; }
    void waitForRTPBucket( int64_t timeout, int payloadType );
    void waitForRTPBucket( int64_t timeout, int payloadTypeA, int payloadTypeB );
    // Ends a wait for that type when it is set; null for an unsupported type. Lives as long as this object.
    GEvent getRTPEvent( int payloadType ) const;

    // A `from` that is empty or the global host goes by the relay when there is one, any other by the UDP port. Failures are logged.
    void send( const GWString& from, const GWString& to, const char* buffer, int length );
    // As that many calls of send, cheaper: for datagrams that are at hand at the same time. What is wrong with `from` is told once.
    void send( const GWString& from, std::span<const GNetOutgoing> datagrams );
    // The remedy for the relay: one buffered writer that drops whole messages above 256 KiB.
    void setRobust( bool robust );
    // Pushes what the relay's buffer still holds; the dispatch loop calls it.
    void flush( );
    // Lets go of the relay; what its buffer still held, for the writer that takes over.
    GString takeUnsent( );

private:
    struct WaitList
    {
        GMegaPortBucketList buckets;
        GEvent event = nullptr;
        bool isFilled = false; // Since beginFill.
    };
    void _append( WaitList& list, GMegaPortBucket* bucket );
    GMegaPortBucket* _take( WaitList& list );
    bool _wake( WaitList& list );
    bool _goesByRelay( const GWString& from ) const;
    bool _isReady( const GWString& from, GWStringView to ) const;
    void _sendRelayed( GWStringView to, std::string_view bytes );
    void _pushRelayed( );

    GWString _name;
    GMutex _sendMutex = nullptr;
    GMutex _recvMutex = nullptr;
    GNetUDPPort* _udpPort = nullptr;
    GNetTCPSocket* _tcpSocket = nullptr;
    WaitList _sipBucketList;
    std::vector<WaitList> _rtpBucketListArray;
    GMegaPortBucketList _emptyBucketList;
    int _numBucketsCreated = 0;
    GWString _localHost;
    GWString _globalHost;
    bool _isFilling = false;
    bool _robust = false;
    GString _relayBuffer; // What waits to be sent; without the remedy the room for one message.
};
