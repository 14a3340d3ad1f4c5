#pragma once

#include <string>

#include "write_service/change_set.h"

// The paths of the configuration tree. `parameter` always begins with a slash.

inline constexpr char ipAddressPath[] = "/configuration/network/ip_addr";
inline constexpr char subnetMaskPath[] = "/configuration/network/subnet_mask";
inline constexpr char broadcastAddressPath[] = "/configuration/network/broadcast_addr";
inline constexpr char videoInputModePath[] = "/configuration/inputs/video/mode";

/// A parameter of video input 1 or 2.
ParameterPath videoInputPath(int input, const char* parameter);

/// A parameter of analogue audio input 1, 2, ...
ParameterPath analogAudioInputPath(int input, const char* parameter);

/// A parameter of an encoder, given by its name, such as "aenc3".
ParameterPath encoderPath(const std::string& encoder, const char* parameter);

/// The path of a video encoder up to its number.
ParameterPath videoEncoderPrefix();

/// A parameter of video encoder 1 or 2.
ParameterPath videoEncoderPath(int number, const char* parameter);

/// The path of a stream up to its number; `output` is "rtsp" or "rtmp".
ParameterPath streamPrefix(const char* output);

/// A parameter of stream 1, 2, ... of an output.
ParameterPath streamPath(const char* output, int stream, const char* parameter);

/// A parameter of transport-stream multiplexer 1 or 2.
ParameterPath muxPath(int mux, const std::string& parameter);

/// The name of the encoder for component 1, 2 or 3 of a multiplexer.
ParameterPath muxComponentEncoderPath(int mux, int component);
