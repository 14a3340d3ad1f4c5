#pragma once

#include "tests/fake_daemon.h"

/// A configuration on which every rule is content: a write changes nothing beside what it names.
Tree applianceTree();

/// The parameters that each rule of every write reads from that tree, in order.
Lines fixedSettingsReads();
Lines muxBitrateReads();
Lines videoEncoderReads();
