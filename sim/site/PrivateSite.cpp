#include "sim/site/Site.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <net/if.h>
#include <sched.h>
#include <set>
#include <string>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace sim {
namespace {

const std::string applianceFolder = "/opt/kivo-appliance";
const std::string siteFolder = "/opt/kivo-site";
const std::string devptsFolder = siteFolder + "/pts";
const std::string cardsFolder = siteFolder + "/cards";
const std::string hostsFile = siteFolder + "/hosts";
const std::string hosts = "127.0.0.1 localhost\n";

/// Says what went wrong, with errno's reason.
bool check(bool ok, const std::string &what) {
    if (!ok)
        std::fprintf(stderr, "private site: %s: %s\n", what.c_str(), std::strerror(errno));
    return ok;
}

class Fd {
public:
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd() {
        if (m_fd >= 0) {
            close(m_fd); // all written to have been checked when written
        }
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    operator int() const { return m_fd; }

private:
    int m_fd;
};

bool writeFile(const std::string &path, const std::string &text) {
    const Fd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    return check(file >= 0 && write(file, text.data(), text.size()) == ssize_t(text.size()), "write " + path);
}

bool makeFolder(const std::string &path, mode_t mode) {
    // chmod as well: the mask takes bits from what mkdir is given.
    return check(mkdir(path.c_str(), mode) == 0 && chmod(path.c_str(), mode) == 0, "make folder " + path);
}

bool mountTmpfs(const std::string &path, const char *options) {
    return check(mount("tmpfs", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options) == 0, "mount tmpfs on " + path);
}

bool bind(const std::string &source, const std::string &target) {
    return check(mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, "bind " + target);
}

/// An ordinary user is root in a user namespace, and owns there what is the user's own.
bool becomeRootOfNamespaces(int namespaces) {
    const std::string user = "0 " + std::to_string(geteuid()) + " 1\n";
    const std::string group = "0 " + std::to_string(getegid()) + " 1\n";
    return check(unshare(namespaces | CLONE_NEWUSER) == 0, "new user namespace") &&
           writeFile("/proc/self/setgroups", "deny\n") && writeFile("/proc/self/uid_map", user) &&
           writeFile("/proc/self/gid_map", group);
}

bool leaveNamespaces() {
    const int namespaces = CLONE_NEWNS | CLONE_NEWNET;
    if (unshare(namespaces) == 0)
        return true;
    return check(errno == EPERM, "new namespaces") && becomeRootOfNamespaces(namespaces);
}

bool makePrivate() {
    return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// What is mounted from here on is seen by nobody else. In a chroot the root is no mount point: there the way leads
/// through the namespace's own root and back.
bool stopPropagation() {
    if (makePrivate())
        return true;
    const Fd root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Fd mounts(open("/proc/self/ns/mnt", O_RDONLY | O_CLOEXEC));
    return check(root >= 0 && mounts >= 0 && setns(mounts, CLONE_NEWNS) == 0 && makePrivate() && fchdir(root) == 0 &&
                     chroot(".") == 0,
                 "make the mounts private");
}

/// Shows an entry of the covered folder, which is the current one, in the cover.
bool showThrough(const fs::directory_entry &entry, const std::string &cover) {
    const std::string name = entry.path().filename();
    const std::string target = cover + '/' + name;
    std::error_code error;
    if (entry.is_symlink(error)) {
        fs::copy_symlink(name, target, error);
        errno = error.value();
        return check(!error, "copy " + target);
    }
    if (entry.is_directory(error))
        return makeFolder(target, 0755) && bind(name, target);
    return writeFile(target, {}) && bind(name, target);
}

/// Puts an empty folder over one, with everything in sight that was in it; but new entries stay within the namespace.
bool cover(const std::string &path, const std::set<std::string> &without) {
    const Fd covered(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!check(covered >= 0 && fchdir(covered) == 0, "enter " + path) || !mountTmpfs(path, "mode=755"))
        return false;
    std::error_code error;
    for (fs::directory_iterator entry(".", error), end; !error && entry != end; entry.increment(error)) {
        if (without.count(entry->path().filename()) == 0 && !showThrough(*entry, path))
            return false;
    }
    errno = error.value();
    return check(!error, "list " + path);
}

/// As the installed box has it: what the Web UI writes to belongs to its group.
bool makeApplianceFolders() {
    const group *webUi = getgrnam("www-data");
    if (!makeFolder(applianceFolder, 0755) || !makeFolder(applianceFolder + "/sounds", 0755))
        return false;
    for (const char *shared : {"/config", "/tmp"}) {
        const std::string path = applianceFolder + shared;
        if (!makeFolder(path, 02775))
            return false;
        // Within a user namespace there is no such group to give it to.
        if (webUi != nullptr && chown(path.c_str(), 0, webUi->gr_gid) == 0 &&
            !check(chmod(path.c_str(), 02775) == 0, path)) {
            return false;
        }
    }
    return true;
}

bool makeSiteFolders() {
    return makeFolder(siteFolder, 0755) && makeFolder(cardsFolder, 0755) && makeFolder(devptsFolder, 0755) &&
           check(mount("devpts", devptsFolder.c_str(), "devpts", MS_NOSUID | MS_NOEXEC,
                       "newinstance,ptmxmode=0666,mode=0666") == 0,
                 "mount devpts");
}

bool replaceHosts() {
    const std::string machines = "/etc/hosts";
    if (access(machines.c_str(), F_OK) != 0 && !(cover("/etc", {}) && writeFile(machines, hosts)))
        return false;
    return writeFile(hostsFile, hosts) && bind(hostsFile, machines);
}

/// Serial ports are locked by files named after them, and the ports of two sites have the same names.
bool replaceLockFolders() {
    std::set<fs::path> folders;
    for (const char *path : {"/run/lock", "/var/lock"}) {
        std::error_code error;
        const fs::path folder = fs::canonical(path, error);
        if (!error && fs::is_directory(folder, error))
            folders.insert(folder);
    }
    for (const fs::path &folder : folders) {
        if (!mountTmpfs(folder, "mode=1777"))
            return false;
    }
    return true;
}

/// The machine's own boards are none of the site's business, not even by the names that a gateway tries by itself.
bool hideSerialBoards() {
    const std::string nothing = siteFolder + "/no-board";
    std::error_code error;
    bool hidden = writeFile(nothing, {});
    for (const fs::directory_entry &device : fs::directory_iterator("/dev", error)) {
        const std::string path = device.path();
        if (path.rfind("/dev/ttyUSB", 0) == 0 || path.rfind("/dev/ttyACM", 0) == 0)
            hidden = hidden && bind(nothing, path);
    }
    return hidden;
}

bool raiseLoopback() {
    const Fd socketFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    if (!check(socketFd >= 0 && ioctl(socketFd, SIOCGIFFLAGS, &request) == 0, "look at the loopback interface"))
        return false;
    request.ifr_flags = short(request.ifr_flags | IFF_UP);
    return check(ioctl(socketFd, SIOCSIFFLAGS, &request) == 0, "raise the loopback interface");
}

/// The same path as before, now through the new mounts.
bool returnTo(const fs::path &folder) {
    return check(chdir(folder.c_str()) == 0, "return to " + folder.string());
}

/// As an installed gateway runs ahead of a busy machine's other work, since 20 ms frames want to be on time. An
/// ordinary user may not; his site runs all the same.
void askForPrecedence() {
    constexpr int niceOfTheService = -10;
    (void)setpriority(PRIO_PROCESS, 0, niceOfTheService);
}

} // namespace

bool enterPrivateSite() {
    askForPrecedence();
    std::error_code error;
    const fs::path folder = fs::current_path(error);
    return leaveNamespaces() && stopPropagation() && cover("/opt", {"kivo-appliance", "kivo-site"}) &&
           makeApplianceFolders() && makeSiteFolders() && replaceHosts() && replaceLockFolders() &&
           hideSerialBoards() && raiseLoopback() && returnTo(error ? "/" : folder);
}

SitePaths sitePaths() {
    return {QString::fromStdString(applianceFolder), QString::fromStdString(devptsFolder),
            QString::fromStdString(cardsFolder), QString::fromStdString(hostsFile)};
}

} // namespace sim
