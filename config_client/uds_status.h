#pragma once

#include <cstdint>
#include <string_view>

/// Outcome of the last operation of a `UdsConnection`.
enum class UdsStatus : std::int32_t {
  Ready = 0,
  OpenFailed = 1,  ///< also the state before the first open
  ConnectFailed = 2,
  WriteFailed = 3,
  WaitFailed = 4,  ///< reserved: no operation sets it
  ReadFailed = 5,
};

/// The message of `status`, such as "UDS read failed"; empty for a code outside the enumeration.
std::string_view statusMessage(UdsStatus status);
