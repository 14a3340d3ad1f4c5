#pragma once

#include "tests/fake_daemon.h"

// Parameters are written short in the tests, several in one text: "net:ip_addr=1.2.3.4
// enc:aenc3/codec". The words before the colons are net, enc, in, mux1, mux2, rtsp and rtmp (stream
// 1) and out.

Tree tree(const std::string& text);
Lines paths(const std::string& text);

/// A configuration on which every rule is content: a write changes nothing beside what it names.
Tree applianceTree();

/// The parameters that each rule of every write reads from that tree, in order.
Lines fixedSettingsReads();
Lines muxBitrateReads();
Lines videoEncoderReads();
