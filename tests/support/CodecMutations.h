// Real packets of both codecs, changed by chance in the ways of a bad line and of a bad peer, and what must hold whatever they are: nothing
// ends the program, a refused packet leaves the decoder usable, what comes out has the size that it tells. Replayable from the seed.
#pragma once

#include "base/GBytes.h"
#include "client/media/GSpeexDecoder.h"
#include "client/media/GSpeexEncoder.h"
#include "client/media/GTheoraDecoder.h"
#include "client/media/GTheoraEncoder.h"
#include "image/GImage.h"

#include <algorithm>
#include <memory>
#include <random>

class CodecMutations
{
public:
    struct Counts
    {
        int64_t tried = 0;
        int64_t taken = 0;
        bool broken = false; // Something that must hold did not.
    };
    struct Results
    {
        Counts pictures;
        Counts codebooks;
        Counts sounds;
        Counts soundCodebooks;
    };

    explicit CodecMutations( unsigned seed ) : _random( seed )
    {
        _makePictures( );
        _makeSounds( );
    }
    // `count` packets: of a hundred 48 are frames of pictures, 48 of sound, and 4 codebooks of both.
    const Results& run( int64_t count )
    {
        for( int64_t i = 0; i < count; ++i )
        {
            const unsigned kind = _random( ) % 100;
            if( kind < 48 )
                _tryPicture( );
            else if( kind < 96 )
                _trySound( );
            else if( kind < 99 )
                _tryCodebook( );
            else
                _trySoundCodebook( );
        }
        return _results;
    }

private:
    static constexpr int EDGE = 48;
    static constexpr int FRAMES = 100; // A key frame, and then what changed.
    static constexpr int OGG_HEADER = 28;
    static constexpr size_t LARGEST_SOUND = size_t{ 256 } * 160 * 2;

    void _makePictures( )
    {
        GTheoraEncoder_generateCodebook( EDGE, EDGE, _codebook );
        _picture.reset( GSAFENEW( GTheoraDecoder, ( _codebook.data( ), static_cast<int>( _codebook.size( ) ) ) ) );
        const GImageFormat format{ GIT_RGB24, EDGE, EDGE };
        const std::unique_ptr<GTheoraEncoder> encoder(
            GSAFENEW( GTheoraEncoder, ( format, { 0, 0, EDGE, EDGE }, EDGE, EDGE, 5 ) ) );
        GString pixels( static_cast<size_t>( EDGE * EDGE * 3 ), '\0' );
        for( int frame = 0; frame < FRAMES; ++frame )
        {
            for( size_t i = 0; i < pixels.size( ); ++i )
                pixels[i] = static_cast<char>( i / 3 * 5 + static_cast<size_t>( frame ) * 9 + _random( ) % 8 );
            GString packet;
            encoder->encode( pixels.data( ), static_cast<int>( pixels.size( ) ), packet );
            _pictures.push_back( packet );
        }
    }
    void _makeSounds( )
    {
        const std::unique_ptr<GSpeexEncoder> encoder( GSAFENEW( GSpeexEncoder, ( GWaveFormatMono16( 8000 ) ) ) );
        _sound = _soundDecoder( 8000 );
        for( int packet = 0; packet < FRAMES; ++packet )
        {
            GString samples, out;
            for( int i = 0; i < 160 * ( 2 + packet % 6 ); ++i )
                samples.append( 1, static_cast<char>( _random( ) ) ).append( 1, static_cast<char>( i * packet / 9 ) );
            encoder->encode( samples.data( ), static_cast<int>( samples.size( ) ), out );
            _sounds.push_back( out );
        }
    }
    static std::unique_ptr<GSpeexDecoder> _soundDecoder( int rate )
    {
        GString book;
        GSpeexEncoder_generateCodebook( book, rate );
        return std::unique_ptr<GSpeexDecoder>(
            GSAFENEW( GSpeexDecoder, ( book.data( ), static_cast<int>( book.size( ) ) ) ) );
    }

    // Bits turned, bytes set, cut, lengthened, parts of another packet: any of them or none.
    GString _changed( const GString& packet, const GString& other, size_t from )
    {
        GString out = packet;
        for( unsigned changes = _random( ) % 6; changes > 0 && out.size( ) > from; --changes )
        {
            const size_t at = from + _random( ) % ( out.size( ) - from );
            switch( _random( ) % 5 )
            {
            case 0: out[at] = static_cast<char>( out[at] ^ 1 << _random( ) % 8 ); break;
            case 1: out[at] = static_cast<char>( _random( ) ); break;
            case 2: out.resize( at ); break;
            case 3: out.append( _random( ) % 64, static_cast<char>( _random( ) ) ); break;
            default: out.replace( at, GString::npos, other, std::min( at, other.size( ) ) ); break;
            }
        }
        return out;
    }
    // The length that a packet tells of itself fits again, most of the time.
    void _mendLength( GString& packet, size_t at, size_t header )
    {
        if( packet.size( ) >= header && _random( ) % 8 )
            GWriteU32( packet.data( ) + at, static_cast<uint32_t>( packet.size( ) - header ) );
    }
    const GString& _any( const std::vector<GString>& packets ) { return packets[_random( ) % packets.size( )]; }

    bool _decode( GTheoraDecoder& decoder, const GString& packet, Counts& counts )
    {
        // In a block of its own, so that a sanitizer sees a read past its end.
        const std::vector<char> exact( packet.begin( ), packet.end( ) );
        GImageFormat format;
        const bool came =
            !exact.empty( ) && decoder.decode( exact.data( ), static_cast<int>( exact.size( ) ), format, _pixels );
        const bool sized = static_cast<int64_t>( _pixels.size( ) ) == GImageSize( format );
        if( came && ( format.type != GIT_RGB24 || !sized ) ) counts.broken = true;
        return came;
    }
    void _tryPicture( )
    {
        GString packet = _changed( _any( _pictures ), _any( _pictures ), _random( ) % 16 ? OGG_HEADER : 0 );
        _mendLength( packet, OGG_HEADER - 4, OGG_HEADER );
        ++_results.pictures.tried;
        _results.pictures.taken += _decode( *_picture, packet, _results.pictures );
        // Now and then a good one: it must always show.
        if( _random( ) % 64 == 0 && !_decode( *_picture, _pictures.front( ), _results.pictures ) )
            _results.pictures.broken = true;
    }
    void _tryCodebook( )
    {
        const GString book = _changed( _codebook, _any( _pictures ), 0 );
        const std::vector<char> exact( book.begin( ), book.end( ) );
        ++_results.codebooks.tried;
        if( exact.empty( ) ) return;
        const std::unique_ptr<GTheoraDecoder> decoder(
            GSAFENEW( GTheoraDecoder, ( exact.data( ), static_cast<int>( exact.size( ) ) ) ) );
        if( !decoder->isValid( ) ) return;
        ++_results.codebooks.taken;
        for( int frame = 0; frame < 2; ++frame ) _decode( *decoder, _any( _pictures ), _results.codebooks );
    }
    void _trySound( )
    {
        GString packet = _changed( _any( _sounds ), _any( _sounds ), _random( ) % 16 ? 4 : 0 );
        _mendLength( packet, 0, 4 );
        ++_results.sounds.tried;
        _results.sounds.taken += _hear( *_sound, packet, _results.sounds );
        if( _random( ) % 64 == 0 && !_hear( *_sound, _any( _sounds ), _results.sounds ) ) _results.sounds.broken = true;
    }
    bool _hear( GSpeexDecoder& decoder, const GString& packet, Counts& counts )
    {
        const std::vector<char> exact( packet.begin( ), packet.end( ) );
        const bool came =
            !exact.empty( ) && decoder.decode( exact.data( ), static_cast<int>( exact.size( ) ), _samples );
        const bool whole = _samples.size( ) % 320 == 0 && _samples.size( ) <= LARGEST_SOUND;
        if( came ? !whole || _samples.empty( ) : !exact.empty( ) && !_samples.empty( ) ) counts.broken = true;
        return came;
    }
    // Any rate that a stream lets through.
    void _trySoundCodebook( )
    {
        const auto decoder = _soundDecoder( 8000 + static_cast<int>( _random( ) % 40001 ) );
        ++_results.soundCodebooks.tried;
        _results.soundCodebooks.taken += _hear( *decoder, _any( _sounds ), _results.soundCodebooks );
    }

    std::mt19937 _random;
    GString _codebook;
    std::vector<GString> _pictures;
    std::vector<GString> _sounds;
    std::unique_ptr<GTheoraDecoder> _picture;
    std::unique_ptr<GSpeexDecoder> _sound;
    GString _pixels;
    GString _samples;
    Results _results;
};
