#include "platform/linux/x_clipboard.h"

#include <X11/Xatom.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

#include "platform/linux/x_connection.h"

namespace mirlo::linuxdesk {

struct XClipboard::Impl {
  XConnection x;
  Window window = None;
  Atom clipboard, utf8, targets, text, plain, property, incr;
  std::chrono::milliseconds limit;
  int wake = -1;

  std::mutex mutex;
  std::deque<std::function<void()>> commands;  // run on the clipboard thread
  bool stopping = false;
  std::thread thread;

  // Owned by the clipboard thread.
  bool owner = false;
  std::optional<std::string> served;  // what we hand out while we own the selection
  std::function<void(XSelectionEvent&)> awaitingNotify;

  explicit Impl(double answerLimit)
      : limit(static_cast<long>(answerLimit * 1000)) {
    Display* d = x.display();
    window = XCreateSimpleWindow(d, x.root(), -10, -10, 1, 1, 0, 0, 0);
    clipboard = x.atom("CLIPBOARD");
    utf8 = x.atom("UTF8_STRING");
    targets = x.atom("TARGETS");
    text = x.atom("TEXT");
    plain = x.atom("text/plain;charset=utf-8");
    property = x.atom("MIRLO_CLIPBOARD");
    incr = x.atom("INCR");
    XSelectInput(d, window, PropertyChangeMask);
    XFlush(d);
    wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    thread = std::thread([this] { loop(); });
  }

  ~Impl() {
    {
      std::lock_guard lock(mutex);
      stopping = true;
    }
    signal();
    thread.join();
    XDestroyWindow(x.display(), window);
    XSync(x.display(), False);
    close(wake);
  }

  void signal() {
    std::uint64_t one = 1;
    [[maybe_unused]] auto written = write(wake, &one, sizeof one);
  }

  // Runs `command` on the clipboard thread and waits for it.
  template <typename T>
  T call(std::function<T()> command) {
    auto task = std::make_shared<std::packaged_task<T()>>(std::move(command));
    auto result = task->get_future();
    {
      std::lock_guard lock(mutex);
      commands.push_back([task] { (*task)(); });
    }
    signal();
    return result.get();
  }

  void loop() {
    Display* d = x.display();
    std::optional<std::chrono::steady_clock::time_point> deadline;
    for (;;) {
      while (XPending(d) > 0) {
        XEvent event;
        XNextEvent(d, &event);
        handle(event);
      }
      std::deque<std::function<void()>> pending;
      {
        std::lock_guard lock(mutex);
        if (stopping) return;
        pending.swap(commands);
      }
      for (auto& command : pending) command();
      if (!pending.empty()) continue;
      pollfd fds[2] = {{ConnectionNumber(d), POLLIN, 0}, {wake, POLLIN, 0}};
      poll(fds, 2, 100);
      if (fds[1].revents & POLLIN) {
        std::uint64_t count = 0;
        [[maybe_unused]] auto got = read(wake, &count, sizeof count);
      }
    }
  }

  void handle(XEvent& event) {
    Display* d = x.display();
    if (event.type == SelectionClear && event.xselectionclear.selection == clipboard) {
      owner = false;
      served.reset();
    } else if (event.type == SelectionRequest) {
      answer(event.xselectionrequest);
    } else if (event.type == SelectionNotify && awaitingNotify) {
      awaitingNotify(event.xselection);
    }
    (void)d;
  }

  void answer(const XSelectionRequestEvent& request) {
    Display* d = x.display();
    XSelectionEvent reply{};
    reply.type = SelectionNotify;
    reply.display = d;
    reply.requestor = request.requestor;
    reply.selection = request.selection;
    reply.target = request.target;
    reply.time = request.time;
    reply.property = None;
    Atom destination = request.property != None ? request.property : request.target;  // obsolete clients
    if (request.selection == clipboard && owner && served) {
      if (request.target == targets) {
        Atom offered[] = {targets, utf8, plain, text, XA_STRING};
        XChangeProperty(d, request.requestor, destination, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<unsigned char*>(offered), 5);
        reply.property = destination;
      } else if (request.target == utf8 || request.target == plain || request.target == text ||
                 request.target == XA_STRING) {
        Atom type = request.target == text ? utf8 : request.target;
        XChangeProperty(d, request.requestor, destination, type, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(served->data()), static_cast<int>(served->size()));
        reply.property = destination;
      }
    }
    x.trapErrors([&] { XSendEvent(d, request.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply)); });
  }

  void own(std::optional<std::string> value) {
    served = std::move(value);
    XSetSelectionOwner(x.display(), clipboard, window, CurrentTime);
    owner = XGetSelectionOwner(x.display(), clipboard) == window;
    XFlush(x.display());
  }

  std::optional<std::string> fetch() {
    Display* d = x.display();
    if (owner) return served;
    if (XGetSelectionOwner(d, clipboard) == None) return std::nullopt;
    XDeleteProperty(d, window, property);
    XConvertSelection(d, clipboard, utf8, property, window, CurrentTime);
    XFlush(d);
    bool done = false;
    bool converted = false;
    awaitingNotify = [&](XSelectionEvent& notify) {
      if (notify.selection != clipboard || notify.requestor != window) return;
      done = true;
      converted = notify.property != None;
    };
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done) {
      while (!done && XPending(d) > 0) {
        XEvent event;
        XNextEvent(d, &event);
        handle(event);
      }
      if (done) break;
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) break;
      pollfd fd{ConnectionNumber(d), POLLIN, 0};
      poll(&fd, 1, static_cast<int>(left.count()));
    }
    awaitingNotify = nullptr;
    if (!converted) return std::nullopt;

    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    std::optional<std::string> result;
    if (XGetWindowProperty(d, window, property, 0, 1L << 24, True, AnyPropertyType, &type, &format, &count, &after,
                           &data) == Success &&
        data && format == 8 && type != incr)
      result = std::string(reinterpret_cast<char*>(data), count);
    if (data) XFree(data);
    return result;
  }
};

XClipboard::XClipboard(double answerLimit) : impl_(std::make_unique<Impl>(answerLimit)) {}

XClipboard::~XClipboard() = default;

std::optional<std::string> XClipboard::readText() {
  return impl_->call<std::optional<std::string>>([this] { return impl_->fetch(); });
}

void XClipboard::clear() {
  // Owning the selection with nothing to give empties it for every application.
  impl_->call<void>([this] { impl_->own(std::nullopt); });
}

void XClipboard::putText(const std::string& text) {
  impl_->call<void>([this, text] { impl_->own(text); });
}

}  // namespace mirlo::linuxdesk
