// Who asks to become a buddy of this user: takes CONTACTREQUESTs of the signalling host, keeps them on the blackboard for the skin,
// and tells the host what the user answered until it has heard. Accepting is not done here: it is an ADDBUDDY.
//   "Contact_Request_List"     user ids, oldest first, not in the settings: the host asks again after the next registration.
//   "Contact_Request_Title"    how many there are, in words, or what is being done about one; empty without any.
//   "<user>_Contact_Status"    the same of one user; empty while there is a choice.
// Off without the setting "Contact_Requests". Only on GSIPService's thread, or under its lock.
#pragma once

#include "runtime/GHTTPHeaders.h"
#include "runtime/GObject.h"

#include <deque>
#include <map>

class GInstance;
class GSIPClient;

class GContactRequests : public GHeapObject
{
public:
    GContactRequests( GInstance* instance, GSIPClient* sipClient ); // Both borrowed.
    void invariantTest( ) const override;

    // A CONTACTREQUEST, from anybody: only the host at which this user is registered is believed, and only about him. What is
    // believed is answered with 200, also a second time. It is shown by the next update. `isBuddy`: that the sender is one already,
    // so that there is nothing to ask.
    void onRequest( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request, bool isBuddy );
    // "refuse" or "block": the request leaves at once. Anything else, or a name that nobody asked under, is a warning.
    void answer( const GWString& userGUID, const GWString& answer );
    // The host's answer to a CONTACTANSWER; the caller has tested where it came from.
    void onResponse( const GHTTPHeaders& request, const GHTTPHeaders& response );
    // An ADDBUDDY for that user is on its way, or has failed: the user has no choice meanwhile. Nothing for others.
    void beginAccept( const GWString& userGUID );
    void failAccept( const GWString& userGUID );
    // Called while the buddy list is known: drops those who are buddies by now, shows what has changed, tells the client of each new
    // request ("NEWCONTACT" with "Buddy-GUID"), and repeats what was not heard.
    void update( );
    // Forgets everything: the next registration brings it back.
    void reset( );

    size_t getUnheardCount( ) const { return _answers.size( ); }

private:
    struct Request
    {
        GWString userGUID;
        uint64_t acceptTime = 0; // Microseconds; 0 while the user has the choice.
        bool isNew = true;       // The client does not know yet.
    };
    struct Answer
    {
        GWString answer;
        uint64_t sentTime = 0;
    };

    bool _isEnabled( ) const;
    bool _isBelievable( const GWString& remoteHost, const GHTTPHeaders& request ) const;
    void _confirm( const GWString& localHost, const GWString& remoteHost, const GHTTPHeaders& request );
    void _add( const GWString& userGUID );
    bool _remove( const GWString& userGUID );
    Request* _find( const GWString& userGUID );
    void _dropBuddies( );
    void _sendAnswer( const GWString& userGUID, Answer& answer );
    void _publish( );

    GInstance* _instance;
    GSIPClient* _sipClient;
    std::deque<Request> _requests; // Oldest first.
    std::map<GWString, Answer> _answers;
    bool _isChanged = false; // Since it was published.
};
