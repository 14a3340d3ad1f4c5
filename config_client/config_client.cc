#include "config_client/config_client.h"

#include <utility>

#include "config_client/trim.h"

ConfigClient::ConfigClient() : connection(std::make_unique<UdsConnection>()) {}

bool ConfigClient::isConnected() const { return connection && connection->isOpen(); }

bool ConfigClient::get(const ParameterPath& name, std::string& value) {
  if (!connection) return false;
  const bool done = execute("ls " + name, value);
  trim(value);
  return done;
}

bool ConfigClient::put(const ChangeSet& changes, std::string& replies) {
  if (!connection) return false;
  replies.clear();
  for (const auto& [name, value] : changes) {
    std::string reply;
    const bool done = put(name, value, reply);
    replies += reply;
    if (!done) return false;
  }
  return true;
}

bool ConfigClient::put(const ParameterPath& name, const std::string& value, std::string& reply) {
  return execute("put " + name + " " + value, reply);
}

bool ConfigClient::apply(std::string& reply) { return execute("apply", reply); }

bool ConfigClient::save(std::string& reply) { return execute("save", reply); }

std::string ConfigClient::statusText() const {
  return connection ? connection->statusText() : "No socket";
}

bool ConfigClient::execute(std::string request, std::string& reply) {
  return connection && connection->execute(std::move(request), reply);
}
