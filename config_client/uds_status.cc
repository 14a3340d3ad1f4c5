#include "config_client/uds_status.h"

std::string_view statusMessage(UdsStatus status) {
  switch (status) {
    case UdsStatus::Ready:
      return "Ready";
    case UdsStatus::OpenFailed:
      return "UDS open failed";
    case UdsStatus::ConnectFailed:
      return "UDS connect failed";
    case UdsStatus::WriteFailed:
      return "UDS write failed";
    case UdsStatus::WaitFailed:
      return "UDS wait failed";
    case UdsStatus::ReadFailed:
      return "UDS read failed";
  }
  return {};
}
