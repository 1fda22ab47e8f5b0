#include "platform/linux/x_clipboard.h"

#include <X11/Xatom.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/linux/x_connection.h"

namespace mirlo::linuxdesk {

namespace {

using Clock = std::chrono::steady_clock;

// Texts larger than this go out in pieces (INCR), even when the server would take them whole:
// one huge request holds the connection for its whole length, and some readers ask for less.
constexpr std::size_t kLargestPiece = 256 * 1024;
// Room left in a request for its own header when the server's limit is the smaller one.
constexpr std::size_t kRequestHeadroom = 1024;
// A requestor that takes no piece for this long has gone away without telling; its transfer is
// dropped so that the text it holds can be freed.
constexpr auto kStalledRequestor = std::chrono::seconds(30);
// An owner's pieces are taken up to this size: an owner that never stops cannot fill the memory in
// the time a read is given. Far beyond any text worth correcting.
constexpr std::size_t kLargestText = 64 * 1024 * 1024;

struct Property {
  Atom type = None;
  int format = 0;
  std::string bytes;
};

}  // namespace

struct XClipboard::Impl {
  XConnection x;
  Window window = None;
  Atom clipboard, utf8, targets, text, plain, property, incr;
  std::chrono::milliseconds limit;
  std::size_t pieceSize = kLargestPiece;
  int wake = -1;
  int abandoned = 0;  // transfers given up; each moves later reads to a fresh property

  std::mutex mutex;
  std::deque<std::function<void()>> commands;  // run on the clipboard thread
  bool stopping = false;
  std::thread thread;

  // Owned by the clipboard thread.
  bool owner = false;
  std::shared_ptr<const std::string> served;  // what we hand out while we own the selection
  std::function<void(XSelectionEvent&)> awaitingNotify;
  std::function<void(XPropertyEvent&)> awaitingProperty;  // changes to our own window's properties

  // A large text going out piece by piece: the next piece is written each time the requestor
  // deletes the property. It keeps its own text, so owning something else meanwhile, or losing
  // the selection, does not cut it short.
  struct Outgoing {
    Window requestor;
    Atom property;
    Atom type;
    std::shared_ptr<const std::string> text;
    std::size_t offset;
    Clock::time_point lastMove;
  };
  std::vector<Outgoing> outgoing;

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
    long units = XExtendedMaxRequestSize(d);
    if (units == 0) units = XMaxRequestSize(d);
    const std::size_t serverBytes = static_cast<std::size_t>(units) * 4;
    if (serverBytes > 2 * kRequestHeadroom) pieceSize = std::min(pieceSize, serverBytes - kRequestHeadroom);
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
    for (const auto& transfer : outgoing) stopWatching(transfer.requestor);
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
      dropStalled();
      if (!pending.empty()) continue;
      pollfd fds[2] = {{ConnectionNumber(d), POLLIN, 0}, {wake, POLLIN, 0}};
      poll(fds, 2, 100);
      if (fds[1].revents & POLLIN) {
        std::uint64_t count = 0;
        [[maybe_unused]] auto got = read(wake, &count, sizeof count);
      }
    }
  }

  // Handles this connection's events until `done` holds or the deadline passes; other
  // applications' requests keep being answered meanwhile.
  template <typename Pred>
  bool waitUntil(Pred done, Clock::time_point deadline) {
    Display* d = x.display();
    for (;;) {
      while (!done() && XPending(d) > 0) {
        XEvent event;
        XNextEvent(d, &event);
        handle(event);
      }
      if (done()) return true;
      auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return false;
      pollfd fd{ConnectionNumber(d), POLLIN, 0};
      poll(&fd, 1, static_cast<int>(std::min<long>(left.count(), 100)));
    }
  }

  void handle(XEvent& event) {
    switch (event.type) {
      case SelectionClear:
        if (event.xselectionclear.selection == clipboard) {
          owner = false;
          served.reset();
        }
        break;
      case SelectionRequest:
        answer(event.xselectionrequest);
        break;
      case SelectionNotify:
        if (awaitingNotify) awaitingNotify(event.xselection);
        break;
      case PropertyNotify:
        if (event.xproperty.window == window) {
          if (awaitingProperty) awaitingProperty(event.xproperty);
        } else if (event.xproperty.state == PropertyDelete) {
          feed(event.xproperty.window, event.xproperty.atom);
        }
        break;
      case DestroyNotify:
        std::erase_if(outgoing, [&](const Outgoing& o) { return o.requestor == event.xdestroywindow.window; });
        break;
      default:
        break;
    }
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
        if (served->size() <= pieceSize) {
          XChangeProperty(d, request.requestor, destination, type, 8, PropModeReplace,
                          reinterpret_cast<const unsigned char*>(served->data()), static_cast<int>(served->size()));
          reply.property = destination;
        } else if (startPieces(request.requestor, destination, type)) {
          reply.property = destination;
        }
      }
    }
    x.trapErrors([&] { XSendEvent(d, request.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply)); });
  }

  // Announces a large text with its size; the requestor deleting that announcement asks for the
  // first piece.
  bool startPieces(Window requestor, Atom destination, Atom type) {
    Display* d = x.display();
    std::erase_if(outgoing, [&](const Outgoing& o) { return o.requestor == requestor && o.property == destination; });
    // A lower bound of the size, in a 32-bit item (which Xlib takes as a long).
    long size = static_cast<long>(std::min<std::size_t>(served->size(), UINT32_MAX));
    const int error = x.trapErrors([&] {
      if (requestor != window) XSelectInput(d, requestor, PropertyChangeMask | StructureNotifyMask);
      XChangeProperty(d, requestor, destination, incr, 32, PropModeReplace, reinterpret_cast<unsigned char*>(&size),
                      1);
    });
    if (error != Success) {
      stopWatching(requestor);
      return false;
    }
    outgoing.push_back({requestor, destination, type, served, 0, Clock::now()});
    return true;
  }

  // The requestor took the previous piece: writes the next one, the empty piece last.
  void feed(Window requestor, Atom deleted) {
    auto it = std::find_if(outgoing.begin(), outgoing.end(),
                           [&](const Outgoing& o) { return o.requestor == requestor && o.property == deleted; });
    if (it == outgoing.end()) return;
    const std::size_t length = std::min(pieceSize, it->text->size() - it->offset);
    const int error = x.trapErrors([&] {
      XChangeProperty(x.display(), requestor, deleted, it->type, 8, PropModeReplace,
                      reinterpret_cast<const unsigned char*>(it->text->data() + it->offset), static_cast<int>(length));
    });
    it->offset += length;
    it->lastMove = Clock::now();
    if (error == Success && length > 0) return;
    outgoing.erase(it);
    stopWatching(requestor);
  }

  // Stops listening to a requestor's window once no transfer to it is left.
  void stopWatching(Window requestor) {
    if (requestor == window) return;
    if (std::any_of(outgoing.begin(), outgoing.end(), [&](const Outgoing& o) { return o.requestor == requestor; }))
      return;
    x.trapErrors([&] { XSelectInput(x.display(), requestor, NoEventMask); });
  }

  void dropStalled() {
    const auto now = Clock::now();
    std::vector<Window> gone;
    std::erase_if(outgoing, [&](const Outgoing& o) {
      if (now - o.lastMove < kStalledRequestor) return false;
      gone.push_back(o.requestor);
      return true;
    });
    for (Window requestor : gone) stopWatching(requestor);
  }

  void own(std::shared_ptr<const std::string> value) {
    served = std::move(value);
    XSetSelectionOwner(x.display(), clipboard, window, CurrentTime);
    owner = XGetSelectionOwner(x.display(), clipboard) == window;
    XFlush(x.display());
  }

  // Reads and deletes the property the owner wrote on our window; nothing when it is absent.
  std::optional<Property> takeProperty() {
    Property result;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    const int status = XGetWindowProperty(x.display(), window, property, 0, 1L << 24, True, AnyPropertyType,
                                          &result.type, &result.format, &count, &after, &data);
    if (status == Success && data && result.format == 8) result.bytes.assign(reinterpret_cast<char*>(data), count);
    if (data) XFree(data);
    if (status != Success || result.type == None) return std::nullopt;
    return result;
  }

  std::optional<std::string> fetch() {
    Display* d = x.display();
    if (owner) return served ? std::optional<std::string>(*served) : std::nullopt;
    if (XGetSelectionOwner(d, clipboard) == None) return std::nullopt;
    // One time limit for the whole transfer, however many pieces it comes in.
    const auto deadline = Clock::now() + limit;
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
    waitUntil([&] { return done; }, deadline);
    awaitingNotify = nullptr;
    if (!converted) return std::nullopt;

    auto first = takeProperty();
    if (!first) return std::nullopt;
    // Deleting the announcement (done by reading it) asks the owner for the first piece.
    if (first->type == incr) return receivePieces(deadline);
    if (first->format != 8) return std::nullopt;
    return std::move(first->bytes);
  }

  // Collects the pieces of a large text as the owner writes them, until the empty one.
  std::optional<std::string> receivePieces(Clock::time_point deadline) {
    std::string whole;
    bool finished = false;
    bool failed = false;
    awaitingProperty = [&](XPropertyEvent& change) {
      if (change.atom != property || change.state != PropertyNewValue || finished || failed) return;
      auto piece = takeProperty();
      if (!piece) return;  // already taken
      if (piece->format != 8 || whole.size() + piece->bytes.size() > kLargestText)
        failed = true;
      else if (piece->bytes.empty())
        finished = true;
      else
        whole += piece->bytes;
    };
    waitUntil([&] { return finished || failed; }, deadline);
    awaitingProperty = nullptr;
    if (!finished) {
      // The owner may still be writing to this property: the next reads use another one, so
      // that its late pieces cannot pass for their answers.
      XDeleteProperty(x.display(), window, property);
      property = x.atom(("MIRLO_CLIPBOARD_" + std::to_string(++abandoned)).c_str());
      return std::nullopt;
    }
    return whole;
  }
};

XClipboard::XClipboard(double answerLimit) : impl_(std::make_unique<Impl>(answerLimit)) {}

XClipboard::~XClipboard() = default;

std::optional<std::string> XClipboard::readText() {
  return impl_->call<std::optional<std::string>>([this] { return impl_->fetch(); });
}

void XClipboard::clear() {
  // Owning the selection with nothing to give empties it for every application.
  impl_->call<void>([this] { impl_->own(nullptr); });
}

void XClipboard::putText(const std::string& text) {
  impl_->call<void>([this, text] { impl_->own(std::make_shared<const std::string>(text)); });
}

}  // namespace mirlo::linuxdesk
