#include "tools/k8/webp_animation.h"

#include <webp/encode.h>
#include <webp/mux.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

namespace {

struct EncoderDeleter {
    void operator()(WebPAnimEncoder* encoder) const { WebPAnimEncoderDelete(encoder); }
};

void addFrame(WebPAnimEncoder* encoder, const Picture& picture, int milliseconds, const WebPConfig& config) {
    WebPPicture frame;
    if (!WebPPictureInit(&frame)) throw std::runtime_error("the WebP library does not fit its header");
    frame.use_argb = 1;
    frame.width = picture.width;
    frame.height = picture.height;
    const bool ok = WebPPictureImportRGBA(&frame, picture.rgba.data(), 4 * picture.width) &&
                    WebPAnimEncoderAdd(encoder, &frame, milliseconds, &config);
    WebPPictureFree(&frame);
    if (!ok) throw std::runtime_error(WebPAnimEncoderGetError(encoder));
}

}  // namespace

void writeWebpAnimation(const std::string& path, const std::vector<Picture>& pictures, double framesPerSecond) {
    WebPAnimEncoderOptions options;
    WebPConfig config;
    if (!WebPAnimEncoderOptionsInit(&options) || !WebPConfigInit(&config) || !WebPConfigLosslessPreset(&config, 4))
        throw std::runtime_error("the WebP library does not fit its header");
    const std::unique_ptr<WebPAnimEncoder, EncoderDeleter> encoder(
        WebPAnimEncoderNew(pictures.front().width, pictures.front().height, &options));
    if (!encoder) throw std::runtime_error(path + ": no WebP encoder for this size");
    const auto timeOf = [framesPerSecond](size_t frame) {
        return int(std::lround(1000.0 * double(frame) / framesPerSecond));
    };
    for (size_t i = 0; i < pictures.size(); ++i) addFrame(encoder.get(), pictures[i], timeOf(i), config);
    WebPData data;
    WebPDataInit(&data);
    const bool ok = WebPAnimEncoderAdd(encoder.get(), nullptr, timeOf(pictures.size()), nullptr) &&
                    WebPAnimEncoderAssemble(encoder.get(), &data);
    std::ofstream out;
    if (ok) {
        out.open(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data.bytes), std::streamsize(data.size));
        out.close();
    }
    const std::string reason = ok ? std::strerror(errno) : WebPAnimEncoderGetError(encoder.get());
    WebPDataClear(&data);
    if (!ok || !out) throw std::runtime_error(path + ": cannot be written: " + reason);
}
