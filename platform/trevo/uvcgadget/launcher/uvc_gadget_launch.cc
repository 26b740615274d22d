// uvc-gadget-launch: runs the stream client on a board with a UVC gadget.
//
// Loads the gadget bridge first, then libhidl_uvc_client.so: the library's
// dependency on libcompositorbridge.trevo.so is then met by the bridge
// already loaded under that name, whichever directory the library was built
// to find it in. Both are opened by name through the launcher's RUNPATH,
// which names the bridge's folder before the library's, in the build tree and
// installed alike. Runs init(false) until SIGINT or SIGTERM, which stop the
// client; exits 0 after a clean stop, 1 when loading fails, 2 on bad usage.
// With --check it only loads both, checks that they fit and says where they
// were found.

#include <dlfcn.h>
#include <getopt.h>
#include <link.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

namespace {

// The library's entry points (include/hidl_uvc_client.h) by their linker
// names, so that nothing here links against the library or a bridge.
const char kInit[] = "_ZN15hidl_uvc_client4initEb";
const char kStop[] = "_ZN15hidl_uvc_client4stopEv";
const char kSetMjpegFileMode[] = "_ZN15hidl_uvc_client16setMjpegFileModeEb";
const char kSetFrameFilesRoot[] =
    "_ZN15hidl_uvc_client17setFrameFilesRootERKNSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEE";
const char kSetCaptureDevice[] =
    "_ZN15hidl_uvc_client16setCaptureDeviceERKNSt7__cxx1112basic_stringIcSt11char_"
    "traitsIcESaIcEEE";
// A bridge symbol, to check which bridge the library got.
const char kBridgeConstructor[] = "_ZN5trevo16CompositorBridgeC1ENS_13BridgeContextE";

const char kUsage[] =
    "usage: uvc-gadget-launch [--bridge PATH] [--library PATH] [--jpeg] [--frames DIR]\n"
    "                         [--camera DEVICE] [--check]\n"
    "  --bridge PATH   gadget bridge (default: " UVC_GADGET_BRIDGE_NAME
    " of the launcher's installation)\n"
    "  --library PATH  stream client (default: " UVC_CLIENT_LIBRARY_NAME
    " of the launcher's installation)\n"
    "  --jpeg          MJPEG streams carry compressed test patterns, not frame files\n"
    "  --frames DIR    root of the recorded frame files (default /data/h264_frames)\n"
    "  --camera DEVICE streams show this V4L2 camera (e.g. /dev/video0), converted\n"
    "                  to what the host asks for; the test pattern while it is missing\n"
    "  --check         load both, check that the library uses this bridge, and exit\n"
    "The bridge reads UVC_GADGET_NODES and UVC_GADGET_CONFIGFS (see README).\n";

// A bare name through the launcher's own search path (its RUNPATH first).
// dlopen would search the caller's, and under a sanitizer the caller is the
// sanitizer's interceptor, whose RUNPATH names none of our folders.
std::string onOwnSearchPath(const char* name) {
    if (std::strchr(name, '/') != nullptr)
        return name;
    void* self = dlopen(nullptr, RTLD_NOW);
    Dl_serinfo size = {};
    if (self == nullptr || dlinfo(self, RTLD_DI_SERINFOSIZE, &size) != 0)
        return name;
    std::unique_ptr<char[]> storage(new char[size.dls_size]);
    auto* info = reinterpret_cast<Dl_serinfo*>(storage.get());
    *info = size;
    if (dlinfo(self, RTLD_DI_SERINFOSIZE, info) != 0 || dlinfo(self, RTLD_DI_SERINFO, info) != 0)
        return name;
    for (unsigned i = 0; i < info->dls_cnt; ++i) {
        const std::string candidate = std::string(info->dls_serpath[i].dls_name) + "/" + name;
        if (access(candidate.c_str(), R_OK) == 0)
            return candidate;
    }
    return name;
}

void* load(const char* name) {
    const std::string path = onOwnSearchPath(name);
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (handle == nullptr)
        fprintf(stderr, "uvc-gadget-launch: %s\n", dlerror());
    return handle;
}

// The file the loader opened for a handle, its folder resolved ("$ORIGIN/.."
// of a search path gone), or the name it was asked for when it cannot tell.
std::string loadedFile(void* handle, const std::string& requested) {
    link_map* map = nullptr;
    if (dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0 || map == nullptr || map->l_name[0] == '\0')
        return requested;
    const std::string file = map->l_name;
    const size_t slash = file.rfind('/');
    if (slash == std::string::npos)
        return file;
    std::unique_ptr<char, decltype(&free)> folder(realpath(file.substr(0, slash + 1).c_str(), nullptr),
                                                  &free);
    return folder ? std::string(folder.get()) + file.substr(slash) : file;
}

}  // namespace

int main(int argc, char** argv) {
    // The client reports on standard output; a log file or journal should
    // see each line when it happens.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    std::string bridgePath = UVC_GADGET_BRIDGE_NAME;
    std::string libraryPath = UVC_CLIENT_LIBRARY_NAME;
    std::string framesRoot;
    std::string camera;
    bool jpeg = false;
    bool checkOnly = false;
    const option options[] = {{"bridge", required_argument, nullptr, 'b'},
                              {"library", required_argument, nullptr, 'l'},
                              {"jpeg", no_argument, nullptr, 'j'},
                              {"frames", required_argument, nullptr, 'f'},
                              {"camera", required_argument, nullptr, 'v'},
                              {"check", no_argument, nullptr, 'c'},
                              {"help", no_argument, nullptr, 'h'},
                              {nullptr, 0, nullptr, 0}};
    for (int c; (c = getopt_long(argc, argv, "", options, nullptr)) != -1;) {
        switch (c) {
            case 'b':
                bridgePath = optarg;
                break;
            case 'l':
                libraryPath = optarg;
                break;
            case 'j':
                jpeg = true;
                break;
            case 'f':
                framesRoot = optarg;
                break;
            case 'v':
                camera = optarg;
                break;
            case 'c':
                checkOnly = true;
                break;
            case 'h':
                fputs(kUsage, stdout);
                return 0;
            default:
                fputs(kUsage, stderr);
                return 2;
        }
    }
    if (optind != argc) {
        fputs(kUsage, stderr);
        return 2;
    }

    void* bridge = load(bridgePath.c_str());
    void* library = bridge != nullptr ? load(libraryPath.c_str()) : nullptr;
    if (library == nullptr)
        return 1;
    bridgePath = loadedFile(bridge, bridgePath);
    libraryPath = loadedFile(library, libraryPath);
    if (dlsym(library, kBridgeConstructor) != dlsym(bridge, kBridgeConstructor)) {
        fprintf(stderr, "uvc-gadget-launch: %s uses another compositor bridge than %s\n",
                libraryPath.c_str(), bridgePath.c_str());
        return 1;
    }
    auto init = reinterpret_cast<int (*)(bool)>(dlsym(library, kInit));
    auto stop = reinterpret_cast<void (*)()>(dlsym(library, kStop));
    auto setMjpegFileMode = reinterpret_cast<void (*)(bool)>(dlsym(library, kSetMjpegFileMode));
    auto setFrameFilesRoot =
        reinterpret_cast<void (*)(const std::string&)>(dlsym(library, kSetFrameFilesRoot));
    if (init == nullptr || stop == nullptr || setMjpegFileMode == nullptr ||
        setFrameFilesRoot == nullptr) {
        fprintf(stderr, "uvc-gadget-launch: %s lacks the client's entry points\n",
                libraryPath.c_str());
        return 1;
    }
    // Older builds of the library have no camera: only an asked-for camera needs it.
    auto setCaptureDevice =
        reinterpret_cast<void (*)(const std::string&)>(dlsym(library, kSetCaptureDevice));
    if (!camera.empty() && setCaptureDevice == nullptr) {
        fprintf(stderr, "uvc-gadget-launch: %s cannot take frames from a camera\n",
                libraryPath.c_str());
        return 1;
    }
    if (checkOnly) {
        printf("uvc-gadget-launch: %s runs on %s\n", libraryPath.c_str(), bridgePath.c_str());
        return 0;
    }
    if (jpeg)
        setMjpegFileMode(false);
    if (!framesRoot.empty())
        setFrameFilesRoot(framesRoot);
    if (!camera.empty())
        setCaptureDevice(camera);

    // Every thread inherits the blocked signals; only the waiter takes them.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals, stop] {
        int received = 0;
        sigwait(&signals, &received);
        stop();
    }).detach();

    const int result = init(false);
    printf("uvc-gadget-launch: client ended (%d)\n", result);
    return result == 0 ? 0 : 1;
}
