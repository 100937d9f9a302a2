#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tools/tap/Output.h"
#include "tools/tap/live/Layout.h"
#include "tools/tap/live/Model.h"
#include "tools/tap/live/StopGuard.h"
#include "tools/tap/live/Terminal.h"

namespace ecu::koru::tap::live {

/// Shows the state of the unit on the whole terminal until a key or the end of the terminal ends it. The main
/// thread draws, at most five times a second; the delivery thread only changes the model.
class Live final : public Output {
 public:
  explicit Live(std::vector<std::string> topics) : m_topics(std::move(topics)) {}
  ~Live() override;
  Live(const Live&) = delete;
  Live& operator=(const Live&) = delete;

  /// Shows from now on whether the client is connected. Before open(); the client must end before this
  /// object.
  void watch(com::ITransportClient& transport, std::string broker);

  [[nodiscard]] std::vector<std::string> topics() const override { return m_topics; }
  /// Shows from now on the time in the recording instead of the present. A pause stops the player too.
  void follow(Player& player, const std::string& name) override;
  /// Only prepares: the screen begins with the first serve(), after the connection to the broker, whose
  /// failure the user must be able to read. Call it before other threads start.
  [[nodiscard]] bool open() override;
  void begin(const Moment& /*beginning*/, bool /*live*/) override { m_begun = true; }
  void take(const Arrival& arrival) override;
  void close() override;
  void add_waits(std::vector<pollfd>& waits) const override;
  [[nodiscard]] int64_t due_ns() const override;
  void serve() override;
  [[nodiscard]] bool needs_pace() const override { return true; }
  /// Returns true if the file is a recording.
  [[nodiscard]] bool outlasts_recording() const override { return m_begun; }
  [[nodiscard]] std::string problem() const override { return m_problem; }

 private:
  /// Has the main thread draw soon. For any thread.
  void mark_changed();
  void start();
  void serve_signals();
  void serve_keys();
  void act(const KeyPress& press);
  void pause_or_go_on();
  void draw_all_again();
  void show(size_t page);
  void turn(size_t pages);
  void scroll_up(size_t rows);
  void scroll_down(size_t rows);
  void draw();
  [[nodiscard]] Moment now() const;
  [[nodiscard]] const Model& shown() const { return m_paused ? *m_paused : m_model; }

  const std::vector<std::string> m_topics;
  std::string m_problem;
  com::ITransportClient* m_transport = nullptr;
  Player* m_player = nullptr;
  bool m_begun = false;
  std::atomic<bool> m_news = false;  // the model or the connection has changed
  tool::Event m_changed;             // wakes the main thread for it
  int m_signals = -1;                // a descriptor: the size changed, Ctrl-Z

  mutable std::mutex m_mutex;  // guards the model
  Model m_model;

  // Of the main thread.
  Terminal m_terminal;
  std::optional<StopGuard> m_guard;  // while there is a screen
  View m_view;
  std::optional<Model> m_paused;  // what stays on the screen
  Rows m_drawn;
  bool m_has_keys = false;    // standard input is a terminal
  bool m_has_changed = true;  // since the last draw
  int64_t m_drawn_ns = 0;     // steady clock
};

}  // namespace ecu::koru::tap::live
