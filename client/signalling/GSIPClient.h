// The transaction layer of signalling: numbers requests, repeats unanswered ones after 1, 2, 4 and 8 s, answers a repeated request
// from a cache, and sends along a whole route list at once. One per process, shared by all sessions.
// No lock of its own: called only on GSIPService's thread, or under its lock. Hosts are "ip:port", times microseconds.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "runtime/GObject.h"

#include <deque>
#include <map>

class GMegaPort;

class IGSIPClientListener
{
public:
    virtual ~IGSIPClientListener( ) = default;
    // The messages are borrowed for the call.
    virtual void onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request ) = 0;
    // `request` is the stored request that this response answers.
    virtual void onResponse( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request,
                             const GHTTPHeaders& response ) = 0;
};

class GSIPClient : public GHeapObject
{
public:
    explicit GSIPClient( GMegaPort* port ); // Borrowed; precondition "port".
    void invariantTest( ) const override;

    // An empty `from` means no preference: the relay if there is one. The caller's message is never changed.
    void sendRequest( const GWString& from, const GWString& to, const GHTTPHeaders& request, bool retransmit );
    void sendRequestToRouteList( const GStringList& routeList, const GHTTPHeaders& request, bool retransmit );
    // Cached: the same request is answered with the same bytes again, without asking the listener.
    void sendResponse( const GWString& from, const GWString& to, const GHTTPHeaders& request,
                       const GHTTPHeaders& response );
    void sendResponseToRouteList( const GStringList& routeList, const GHTTPHeaders& request,
                                  const GHTTPHeaders& response );

    // Drains the port's signalling list into the listener, then repeats what is due. Precondition "listener".
    void dispatch( IGSIPClientListener* listener );
    // Forgets all transactions, also those of other sessions.
    void reset( );
    // Forgets the transactions of one device, or everything when the remedy is off.
    void reset( GWStringView buddyGUID, GWStringView deviceGUID );
    // Repeats none of the requests to one device any more; their answers are still known.
    void settle( GWStringView buddyGUID, GWStringView deviceGUID );
    GMegaPort* getPort( ) const { return _port; }

    // The remedy: answers are remembered by sender and number, records leave after 60 s, numbers start at random and never go
    // back, answers repeat the group, copies through a relay leave 0.4 s after the direct ones, symmetric routes are tried.
    void setRobust( bool robust );
    bool isRobust( ) const { return _robust; }
    // The two hosts of the port that are in use now.
    GStringList getOwnHosts( ) const;
    size_t getRequestCount( ) const { return _requestMap.size( ); }
    size_t getResponseCount( ) const { return _responseMap.size( ); }

private:
    struct RequestRecord
    {
        GWString from;
        GWString to;
        GString requestBuffer;
        uint64_t sentTime = 0;
        bool receivedResponse = false;
        int retransmissions = 0;
        bool retransmit = false;
        GWString owner; // The device that it is meant for.
    };
    struct ResponseRecord
    {
        GWString from;
        GWString to;
        GString responseBuffer;
        uint64_t sentTime = 0;
        GWString owner; // The device that asked.
    };
    struct FromTo
    {
        GWString from;
        GWString to;
        GWString toType;
    };
    using FromToList = std::list<FromTo>;
    // A copy that gives the direct ones a start.
    struct DeferredCopy
    {
        uint64_t due = 0;
        GWString from;
        GWString to;
        GString buffer;
        GWString cseq; // Of a request; empty for a response.
    };

    void _composeFromToList( FromToList& fromToList, const GWString& fromHost, const GStringList& routeList ) const;
    FromToList _composeFromToList( const GStringList& routeList ) const;
    GWString _typeOf( const GWString& from ) const;
    void _label( GHTTPHeaders& message, const FromTo& fromTo ) const;
    GWString _nextCSeq( );
    GWString _responseKey( const GHTTPHeaders& request ) const;
    GHTTPHeaders _nameRequest( const GHTTPHeaders& response, const GHTTPHeaders& request ) const;
    void _recordRequest( const GWString& cseq, const GWString& from, const GWString& to, const GHTTPHeaders& message,
                         bool retransmit );
    void _onBucket( IGSIPClientListener* listener, const GWString& localHost, const GWString& remoteHost,
                    const GString& buffer );
    void _onRequest( IGSIPClientListener* listener, const GWString& localHost, const GWString& remoteHost,
                     const GHTTPHeaders& request );
    void _onResponse( IGSIPClientListener* listener, const GWString& localHost, const GWString& remoteHost,
                      const GHTTPHeaders& response );
    void _markGroup( const GHTTPHeaders& request, const GHTTPHeaders& response );
    void _sendCopy( const FromTo& fromTo, const GString& buffer, const GWString& cseq );
    void _sendDeferredCopies( );
    void _retransmit( );
    void _dropOldRecords( );

    GMegaPort* _port;
    std::map<GWString, RequestRecord> _requestMap;
    std::map<GWString, ResponseRecord> _responseMap;
    int _cseq = 0;
    // Keys in the order of their arrival, for the limits.
    std::deque<GWString> _requestOrder;
    std::deque<GWString> _responseOrder;
    std::deque<DeferredCopy> _deferredCopies; // In the order of their time.
    bool _robust = false;
};
