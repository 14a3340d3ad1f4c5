#pragma once

#include "tests/fake_daemon.h"

// The tests write parameters short, several in one text: "net:ip_addr=10.0.0.1 enc:aenc3/codec".
// What stands before the colon: net, enc, in, out, mux1, mux2, rtsp and rtmp (their stream 1), or
// all before a whole path.

Tree tree(const std::string& text);
Strings paths(const std::string& text);

/// A configuration on which every rule is content: a write changes nothing besides what it names.
Tree applianceTree();

/// Of these, the parameters that have the same value always.
Tree fixedSettings();
