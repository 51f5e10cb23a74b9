#include <linux/net_tstamp.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

/** Sets a card's stamping behind the back of its daemon: stamping IF TX_TYPE RX_FILTER. */
int main(int argc, char** argv) {
    if (argc != 4) {
        std::fprintf(stderr, "stamping: stamping IF TX_TYPE RX_FILTER\n");
        return 2;
    }
    hwtstamp_config config{};
    config.tx_type = static_cast<int>(std::strtol(argv[2], nullptr, 10));
    config.rx_filter = static_cast<int>(std::strtol(argv[3], nullptr, 10));
    ifreq request{};
    std::strncpy(request.ifr_name, argv[1], IFNAMSIZ - 1);
    request.ifr_data = reinterpret_cast<char*>(&config);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (ioctl(fd, SIOCSHWTSTAMP, &request) != 0) {
        std::perror("stamping");
        return 1;
    }
    return 0;
}
