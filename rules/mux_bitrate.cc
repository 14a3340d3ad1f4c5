#include "rules/rules.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "rules/parameter_paths.h"
#include "write_service/parameter_access.h"

namespace {

constexpr std::int32_t lowestTotal = 200000;
constexpr std::int32_t highestTotal = 50000000;

struct Mux {
  bool variableBitrate = false;
  bool hasH264Video = false;  ///< of the last video encoder only
  std::int32_t total = 0;
};

}  // namespace

// Bitrates are texts, set by users to anything. Sums and products wrap in 32 bits.

static std::int32_t add(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

static std::int32_t multiply(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

static bool startsWith(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

static bool getBitrate(ConfigClient& client, const ChangeSet& changes, const ParameterPath& path,
                       std::int32_t& bitrate) {
  std::string text;
  if (!getEffectiveValue(client, changes, path, text)) return false;
  bitrate = std::atoi(text.c_str());
  return true;
}

static bool addAudio(ConfigClient& client, const ChangeSet& changes, const std::string& encoder,
                     Mux& mux) {
  // Audio encoder 3 keeps its bitrate with its codec.
  const char* const parameter = encoder.compare(4, 1, "3") == 0 ? "/aac/bitrate" : "/bitrate";
  std::int32_t bitrate = 0;
  if (!getBitrate(client, changes, encoderPath(encoder, parameter), bitrate)) return false;
  mux.total = add(mux.total, mux.variableBitrate ? bitrate : multiply(bitrate, 2));
  return true;
}

static bool addVideo(ConfigClient& client, const ChangeSet& changes, const std::string& encoder,
                     Mux& mux) {
  std::string codec;
  if (!getEffectiveValue(client, changes, encoderPath(encoder, "/codec"), codec)) return false;
  mux.hasH264Video = codec == "h264";
  if (!mux.hasH264Video) return true;
  std::int32_t bitrate = 0;
  if (!getBitrate(client, changes, encoderPath(encoder, "/h264/bitrate"), bitrate)) return false;
  const std::int32_t scaled =
      mux.variableBitrate ? multiply(bitrate, 5) / 6 : multiply(bitrate, 20) / 19;
  mux.total = add(mux.total, scaled);
  return true;
}

static bool addComponent(ConfigClient& client, const ChangeSet& changes, const ParameterPath& path,
                         Mux& mux) {
  std::string encoder;
  if (!getEffectiveValue(client, changes, path, encoder)) return false;
  if (startsWith(encoder, "aenc")) return addAudio(client, changes, encoder, mux);
  if (startsWith(encoder, "venc")) return addVideo(client, changes, encoder, mux);
  return true;
}

void applyMuxBitrateRule(ConfigClient& client, ChangeSet& changes) {
  for (const int number : {1, 2}) {
    Mux mux;
    std::string mode;
    if (!getEffectiveValue(client, changes, muxPath(number, "/mode"), mode)) return;
    mux.variableBitrate = mode == "vbr";
    for (const int component : {1, 2, 3}) {
      if (!addComponent(client, changes, muxComponentEncoderPath(number, component), mux)) return;
    }
    if (!mux.hasH264Video) continue;
    const std::int32_t total = std::clamp(mux.total, lowestTotal, highestTotal);
    setIfChanged(client, changes, muxPath(number, "/bitrate"), std::to_string(total));
  }
}
