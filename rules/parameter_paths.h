#pragma once

#include <string>
#include <string_view>

#include "write_service/change_set.h"

// Paths that more than one unit names. Each family of numbered paths has its one helper.

inline constexpr std::string_view ipAddressPath = "/configuration/network/ip_addr";
inline constexpr std::string_view subnetMaskPath = "/configuration/network/subnet_mask";
inline constexpr std::string_view videoModePath = "/configuration/inputs/video/mode";

/// What stands before the number of a video encoder and of an RTSP stream.
inline constexpr std::string_view videoEncoderPrefix = "/configuration/encoders/venc";
inline constexpr std::string_view rtspStreamPrefix = "/configuration/outputs/rtsp/streams/stream";

/// A parameter of the encoder of that name ("venc1", "aenc3"); `parameter` begins with a slash.
ParameterPath encoderPath(const std::string& encoder, const char* parameter);

/// A parameter of video encoder 1 or 2.
ParameterPath videoEncoderPath(int number, const char* parameter);

/// A parameter of stream 1, 2, ... of the output "rtsp" or "rtmp".
ParameterPath streamPath(const char* output, int stream, const char* parameter);

/// A parameter of transport-stream multiplexer 1 or 2.
ParameterPath muxPath(int mux, const std::string& parameter);

/// The name of the encoder that feeds component 1, 2 or 3 of a multiplexer.
ParameterPath muxEncoderPath(int mux, int component);
