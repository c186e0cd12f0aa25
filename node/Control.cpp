// SPDX-License-Identifier: MIT
#include "Control.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Order.h"

namespace node {

namespace {

constexpr int BACKLOG = 128;     // clients that come at once; more are told to try again, or wait
constexpr milliseconds TURN{1};  // between two turns of one client
constexpr size_t ORDERS_A_TURN = 8;  // frames do not wait for more

// Where nobody listens any more, a socket file is left by a node that was killed.
void removeDeadSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        throw NodeError("--control " + path + ": a socket's path has 1 to " +
                        std::to_string(sizeof address.sun_path - 1) + " bytes");
    std::copy(path.begin(), path.end(), address.sun_path);
    struct stat about {};
    if (lstat(path.c_str(), &about) != 0)
        return;
    if (!S_ISSOCK(about.st_mode))
        throw NodeError("--control " + path + ": is there and no socket");
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool answered =
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    const int why = errno;
    ::close(fd);
    // A full queue is that of a living node, and what may not be opened is somebody else's.
    if (answered || why == EAGAIN)
        throw NodeError("--control " + path + ": another node listens there");
    if (why != ECONNREFUSED)
        check(-why, "--control " + path);
    unlink(path.c_str());
}

}  // namespace

class Control::Client {
  public:
    Client(Control& control, PlaySound::Holder holder)
        : control_(control),
          holder_(holder),
          turn_(control.loop_, [this] { goOn(); }),
          stream_(new uv_pipe_t{}) {
        uv_pipe_init(control.loop_.get(), stream_.get(), 0);
        stream_->data = this;
    }

    uv_stream_t* stream() { return reinterpret_cast<uv_stream_t*>(stream_.get()); }
    PlaySound::Holder holder() const { return holder_; }

    void read() {
        uv_read_start(
            stream(),
            [](uv_handle_t* handle, size_t, uv_buf_t* room) {
                auto& buffer = static_cast<Client*>(handle->data)->buffer_;
                *room = uv_buf_init(buffer.data(), static_cast<unsigned>(buffer.size()));
            },
            [](uv_stream_t* stream, ssize_t count, const uv_buf_t*) {
                auto* const client = static_cast<Client*>(stream->data);
                uv_read_stop(stream);
                if (count < 0)
                    return client->control_.close(client);
                client->take({client->buffer_.data(), static_cast<size_t>(count)});
            });
    }

  private:
    struct Reply {
        uv_write_t request{};
        std::string text;
    };

    void take(std::string_view bytes) {
        line_.append(bytes);
        answerSome();
    }

    // Goes on when its answers are on their way, and behind whatever else is ready.
    void answerSome() {
        std::string replies;
        size_t end = line_.find('\n');
        for (size_t i = 0; i < ORDERS_A_TURN && end != line_.npos; ++i) {
            if (end > LONGEST_LINE)
                break;
            replies += control_.answer(std::string_view(line_).substr(0, end), holder_) + "\n";
            line_.erase(0, end + 1);
            end = line_.find('\n');
        }
        if (std::min(end, line_.size()) > LONGEST_LINE) {
            control_.log_.warning("control client: a line of more than " +
                                  std::to_string(LONGEST_LINE) + " bytes; closed");
            return control_.close(this);
        }
        if (replies.empty())
            return turn_.once(TURN);
        send(std::move(replies));
    }

    void goOn() {
        if (line_.find('\n') == line_.npos)
            read();
        else
            answerSome();
    }

    void send(std::string text) {
        auto* const reply = new Reply{{}, std::move(text)};
        reply->request.data = reply;
        const uv_buf_t bytes =
            uv_buf_init(reply->text.data(), static_cast<unsigned>(reply->text.size()));
        const int result =
            uv_write(&reply->request, stream(), &bytes, 1, [](uv_write_t* request, int status) {
                const std::unique_ptr<Reply> done(static_cast<Reply*>(request->data));
                auto* const client = static_cast<Client*>(request->handle->data);
                if (!client)
                    return;
                if (status < 0)
                    return client->control_.close(client);
                client->turn_.once(TURN);
            });
        if (result < 0) {
            delete reply;
            control_.close(this);
        }
    }

    Control& control_;
    PlaySound::Holder holder_;
    std::array<char, 4096> buffer_{};
    std::string line_;  // orders not yet answered, and the beginning of one
    Timer turn_;
    Handle<uv_pipe_t> stream_;
};

Control::Control(Loop& loop, const Log& log, Node& node, const std::string& path,
                 std::function<void()> on_stop)
    : loop_(loop),
      log_(log),
      node_(node),
      path_(path),
      on_stop_(std::move(on_stop)),
      server_(new uv_pipe_t{}) {
    uv_pipe_init(loop.get(), server_.get(), 0);
    server_->data = this;
    removeDeadSocket(path);
    const mode_t others = umask(0177);
    const int bound = uv_pipe_bind(server_.get(), path.c_str());
    umask(others);
    check(bound, "--control " + path);
    check(uv_listen(reinterpret_cast<uv_stream_t*>(server_.get()), BACKLOG,
                    [](uv_stream_t* server, int status) {
                        if (status == 0)
                            static_cast<Control*>(server->data)->accept();
                    }),
          "--control " + path);
}

Control::~Control() = default;  // libuv removes the socket file

void Control::accept() {
    auto client = std::make_unique<Client>(*this, next_holder_++);
    if (uv_accept(reinterpret_cast<uv_stream_t*>(server_.get()), client->stream()) < 0)
        return;
    if (clients_.size() >= MOST_CLIENTS) {
        log_.warning("control: more than " + std::to_string(MOST_CLIENTS) +
                     " clients; the newest is closed");
        return;
    }
    client->read();
    clients_.push_back(std::move(client));
}

void Control::close(Client* client) {
    node_.playSoundGone(client->holder(), "control client");
    clients_.remove_if([client](const auto& one) { return one.get() == client; });
}

std::string Control::answer(std::string_view line, PlaySound::Holder holder) {
    std::string error;
    const std::optional<Order> order = parseOrder(line, error);
    if (!order)
        return errorReply(error);
    switch (order->kind) {
        case Order::STATUS:
            return statusReply(jsonOf(node_.status()));
        case Order::PLAY_SOUND:
            node_.playSound(holder, order->on);
            return okReply();
        case Order::RESTART:
            node_.restart();
            return okReply();
        case Order::STOP:
            on_stop_();
            return okReply();
    }
    return "";
}

}  // namespace node
