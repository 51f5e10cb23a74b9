#pragma once

/** Watches one interface by its name: whether it is there, up and has a carrier. */
class LinkWatch {
public:
    /** Without a kernel that tells of changes there is no descriptor, and state still answers. */
    explicit LinkWatch(const char* interfaceName);
    ~LinkWatch();
    LinkWatch(const LinkWatch&) = delete;
    LinkWatch& operator=(const LinkWatch&) = delete;

    /** Readable when something changed; -1 without one. */
    int descriptor() const { return netlink_; }

    struct State {
        int index;        ///< 0: there is no such interface
        bool isUp;        ///< it is up and frames can leave
        bool wasDeleted;  ///< an interface of the index given has been deleted since the last look
    };

    /** Takes what the kernel tells and looks. index: the interface that the caller uses. */
    State look(int index);

private:
    bool takeMessages(int index);

    const char* interfaceName_;
    int netlink_;
    int query_;
};
