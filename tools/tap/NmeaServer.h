#pragma once

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "tools/tap/ListenAddress.h"
#include "tools/tap/NmeaFeed.h"

namespace ecu::koru::tap {

/// Sends the sentences to TCP clients. Each gets all from its connection on, or is dropped: if its socket
/// still has no room for the sentences of one fix when those of the next come, it does not read.
class NmeaServer final : public NmeaFeed {
 public:
  explicit NmeaServer(ListenAddress address) : m_address(std::move(address)) {}

  /// Listens. Returns false if that fails.
  [[nodiscard]] bool open() override;
  void add_waits(std::vector<pollfd>& waits) const override;

 private:
  struct Client {
    Client(std::string peer, int descriptor) : name(std::move(peer)), socket(descriptor, "client") {}
    std::string name;  // its address
    tool::Descriptor socket;
    std::string unsent;  // the rest of sentences that did not fit
  };

  void hand_over(std::string_view sentences) override;
  void accept_clients();
  void add_client(const std::string& name, int descriptor);
  /// Returns false if the client must go: it closed the connection, or it does not read.
  [[nodiscard]] static bool send(Client& client, std::string_view sentences);

  const ListenAddress m_address;
  std::unique_ptr<tool::Descriptor> m_listener;
  std::list<Client> m_clients;
};

}  // namespace ecu::koru::tap
