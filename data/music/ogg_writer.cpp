#include "data/music/ogg_writer.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include <vorbis/vorbisenc.h>

namespace music {
namespace {

// The serial number of the one logical stream in every file we write.
constexpr int kStreamSerial = 0x415A4B31;
constexpr int kChunkFrames = 1024;

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};

bool WritePage(FILE* f, const ogg_page& page) {
    return std::fwrite(page.header, 1, page.header_len, f) == static_cast<size_t>(page.header_len) &&
           std::fwrite(page.body, 1, page.body_len, f) == static_cast<size_t>(page.body_len);
}

}  // namespace

OggComments TrackComments() {
    OggComments c;
    c.tags = {{"TITLE", "Burn-in Loop"},
              {"ARTIST", "Ardentium synthesiser"},
              {"ALBUM", "Ardentium benchmark music"},
              {"COMMENT", "generated at build time; loops without a seam"}};
    return c;
}

bool WriteOggVorbis(const std::string& path, const std::vector<int16_t>& interleaved, int channels,
                    int sampleRate, float quality, const OggComments& comments, std::string* error) {
    if (channels < 1 || channels > 255 || interleaved.size() % channels != 0) {
        *error = "unsupported channel layout";
        return false;
    }
    std::unique_ptr<FILE, FileCloser> f(std::fopen(path.c_str(), "wb"));
    if (!f) {
        *error = "cannot create " + path;
        return false;
    }

    vorbis_info vi;
    vorbis_info_init(&vi);
    if (vorbis_encode_init_vbr(&vi, channels, sampleRate, quality) != 0) {
        vorbis_info_clear(&vi);
        *error = "the encoder refuses these settings";
        return false;
    }
    vorbis_comment vc;
    vorbis_comment_init(&vc);
    for (const auto& tag : comments.tags) vorbis_comment_add_tag(&vc, tag.first.c_str(), tag.second.c_str());

    vorbis_dsp_state vd;
    vorbis_block vb;
    vorbis_analysis_init(&vd, &vi);
    vorbis_block_init(&vd, &vb);
    ogg_stream_state os;
    ogg_stream_init(&os, kStreamSerial);

    bool ok = true;
    ogg_packet header, headerComments, headerCode;
    vorbis_analysis_headerout(&vd, &vc, &header, &headerComments, &headerCode);
    ogg_stream_packetin(&os, &header);
    ogg_stream_packetin(&os, &headerComments);
    ogg_stream_packetin(&os, &headerCode);
    ogg_page page;
    // The headers end a page of their own, so audio starts on a fresh page.
    while (ok && ogg_stream_flush(&os, &page) != 0) ok = WritePage(f.get(), page);

    const size_t frames = interleaved.size() / channels;
    size_t done = 0;
    bool ended = false;
    while (ok && !ended) {
        const size_t n = std::min<size_t>(kChunkFrames, frames - done);
        if (n == 0) {
            vorbis_analysis_wrote(&vd, 0);  // end of stream
        } else {
            float** buffer = vorbis_analysis_buffer(&vd, static_cast<int>(n));
            for (size_t i = 0; i < n; ++i)
                for (int c = 0; c < channels; ++c)
                    buffer[c][i] = interleaved[(done + i) * channels + c] / 32768.0f;
            vorbis_analysis_wrote(&vd, static_cast<int>(n));
            done += n;
        }
        while (ok && vorbis_analysis_blockout(&vd, &vb) == 1) {
            vorbis_analysis(&vb, nullptr);
            vorbis_bitrate_addblock(&vb);
            ogg_packet packet;
            while (ok && vorbis_bitrate_flushpacket(&vd, &packet)) {
                ogg_stream_packetin(&os, &packet);
                while (ok && ogg_stream_pageout(&os, &page) != 0) {
                    ok = WritePage(f.get(), page);
                    if (ogg_page_eos(&page)) ended = true;
                }
            }
        }
        if (n == 0) ended = true;
    }
    while (ok && ogg_stream_flush(&os, &page) != 0) ok = WritePage(f.get(), page);

    ogg_stream_clear(&os);
    vorbis_block_clear(&vb);
    vorbis_dsp_clear(&vd);
    vorbis_comment_clear(&vc);
    vorbis_info_clear(&vi);
    if (ok && std::fflush(f.get()) != 0) ok = false;
    if (!ok) *error = "write error on " + path;
    return ok;
}

}  // namespace music
