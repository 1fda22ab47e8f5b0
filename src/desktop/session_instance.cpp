#include "desktop/session_instance.h"

#include <gio/gio.h>

#include <cstdio>
#include <utility>

namespace mirlo::desktop {

struct SessionInstance::State {
  GApplication* application = nullptr;
  std::function<void(const std::vector<std::string>&)> receiver;
  std::vector<std::string> pending;

  void deliver(std::vector<std::string> urls) {
    if (urls.empty()) return;
    if (!receiver) {
      for (auto& url : urls) pending.push_back(std::move(url));
      return;
    }
    receiver(urls);
  }
};

namespace {

// A later start's arguments, as bytes: the program's own path first, then what the browser or the
// person gave it. Command-line forwarding carries them unchanged, even when they are not UTF-8.
gint heardCommandLine(GApplication*, GApplicationCommandLine* commandLine, gpointer data) {
  auto* state = static_cast<SessionInstance::State*>(data);
  int count = 0;
  gchar** arguments = g_application_command_line_get_arguments(commandLine, &count);
  std::vector<std::string> urls;
  for (int i = 1; i < count; ++i) urls.emplace_back(arguments[i]);
  g_strfreev(arguments);
  state->deliver(std::move(urls));
  return 0;
}

}  // namespace

SessionInstance::SessionInstance() : state_(std::make_unique<State>()) {
  // Command-line forwarding rather than "open": a URL reaches the program byte for byte, without
  // being turned into a file and back.
  state_->application = g_application_new(kApplicationId, G_APPLICATION_HANDLES_COMMAND_LINE);
  g_signal_connect(state_->application, "command-line", G_CALLBACK(heardCommandLine), state_.get());
}

SessionInstance::~SessionInstance() { g_object_unref(state_->application); }

SessionInstance::Role SessionInstance::claim(const std::vector<std::string>& urls) {
  GError* error = nullptr;
  if (!g_application_register(state_->application, nullptr, &error)) {
    // Someone else owns the name but cannot be reached, or the bus refused: run on our own.
    std::fprintf(stderr, "mirlo : le bus de session ne répond pas (%s) ; un second lancement ne sera pas entendu\n",
                 error ? error->message : "?");
    g_clear_error(&error);
    return Role::Alone;
  }
  if (!g_application_get_is_remote(state_->application)) {
    // Without a session bus GLib makes every process its own program.
    return g_application_get_dbus_connection(state_->application) ? Role::Primary : Role::Alone;
  }
  std::vector<std::string> arguments{"mirlo"};
  arguments.insert(arguments.end(), urls.begin(), urls.end());
  std::vector<char*> argv;
  for (auto& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  // Sends them and waits for the running program's answer, which comes as soon as it has them.
  g_application_run(state_->application, static_cast<int>(arguments.size()), argv.data());
  return Role::HandedOver;
}

void SessionInstance::onURLs(std::function<void(const std::vector<std::string>&)> receiver) {
  state_->receiver = std::move(receiver);
  if (state_->receiver && !state_->pending.empty()) state_->deliver(std::exchange(state_->pending, {}));
}

}  // namespace mirlo::desktop
