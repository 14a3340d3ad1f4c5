#include "rules/parameter_paths.h"

ParameterPath videoInputPath(int input, const char* parameter) {
  return "/configuration/inputs/video/in" + std::to_string(input) + parameter;
}

ParameterPath analogAudioInputPath(int input, const char* parameter) {
  return "/configuration/inputs/audio/analog_in" + std::to_string(input) + parameter;
}

ParameterPath encoderPath(const std::string& encoder, const char* parameter) {
  return "/configuration/encoders/" + encoder + parameter;
}

ParameterPath videoEncoderPrefix() { return encoderPath("venc", ""); }

ParameterPath videoEncoderPath(int number, const char* parameter) {
  return videoEncoderPrefix() + std::to_string(number) + parameter;
}

ParameterPath streamPrefix(const char* output) {
  return std::string("/configuration/outputs/") + output + "/streams/stream";
}

ParameterPath streamPath(const char* output, int stream, const char* parameter) {
  return streamPrefix(output) + std::to_string(stream) + parameter;
}

ParameterPath muxPath(int mux, const std::string& parameter) {
  return "/configuration/outputs/ts/muxer/mux" + std::to_string(mux) + parameter;
}

ParameterPath muxComponentEncoderPath(int mux, int component) {
  return muxPath(mux, "/component" + std::to_string(component) + "/encoder");
}
