#pragma once

#include "tests/fake_daemon.h"

// The tests write parameters short, several in one text: "net:ip_addr=10.0.0.1 enc:aenc3/codec".
// Before the colon stands net, enc, venc1, venc2, in, out, mux1, mux2, rtsp or rtmp (their stream
// 1).

Tree tree(const std::string& text);
Strings paths(const std::string& text);

/// A configuration in accord with every rule: a write changes the named parameter alone.
Tree applianceTree();

/// The pinned ones of these parameters.
Tree fixedSettings();
