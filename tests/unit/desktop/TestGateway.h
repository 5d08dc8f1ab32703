// A gateway that speaks UPnP on the loopback interface: it answers discovery, describes itself and takes port mappings. One at a
// time on a machine, for discovery is heard by all.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class TestGateway
{
public:
    // Refuses that many mappings before it takes one. Without a description nothing can be asked of it. `address` is its own on
    // the wide-area side.
    explicit TestGateway( int refusals = 0, bool describes = true, const std::string& address = "5.5.5.5" );
    ~TestGateway( );
    TestGateway( const TestGateway& ) = delete;
    TestGateway& operator=( const TestGateway& ) = delete;

    struct Mapping
    {
        std::string action; // "AddPortMapping" or "DeletePortMapping".
        std::string externalPort;
        std::string protocol;
        std::string internalPort;
        std::string internalClient;
        std::string description;
    };
    std::vector<Mapping> mappings( );

private:
    void _run( );
    void _answerSearch( );
    void _answerRequest( );
    std::string _answer( const std::string& request );
    std::string _control( const std::string& request );

    int _lock = -1;
    int _search = -1;
    int _listener = -1;
    int _port = 0;
    int _refusals;
    bool _describes;
    std::string _address;
    std::atomic<bool> _stop = false;
    std::mutex _mutex;
    std::vector<Mapping> _mappings;
    std::thread _thread;
};
