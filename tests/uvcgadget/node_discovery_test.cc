#include <gtest/gtest.h>

#include "GadgetTestSupport.h"
#include "io/NodeDiscovery.h"

using namespace uvc_gadget;

namespace {

struct Discovery : testing::Test {
    gadget_test::TempDir root;
    NodeDiscovery discovery{root.path() + "/class", root.path() + "/config", "/dev"};

    // A video node of gadget `gadget`'s function `function`.
    void node(const std::string& video, const std::string& gadget, const std::string& function) {
        root.write("class/" + video + "/function_name", function + "\n");
        root.write("config/usb_gadget/" + gadget + "/functions/" + function + "/streaming/x", "");
    }
    std::string functionDir(const std::string& gadget, const std::string& function) {
        return root.path() + "/config/usb_gadget/" + gadget + "/functions/" + function;
    }
};

}  // namespace

// Nodes are taken in order of their function names and numbered 0:0, 0:1, ...
TEST_F(Discovery, MapsFunctionsToStreamsInNameOrder) {
    node("video3", "g1", "uvc.1");
    node("video1", "g1", "uvc.0");
    root.write("class/video0/name", "a capture device\n");  // no function_name: not a gadget
    std::vector<std::string> notes;
    const std::vector<GadgetNode> nodes = discovery.find("", notes);
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].videoPath, "/dev/video1");
    EXPECT_EQ(nodes[0].functionDir, functionDir("g1", "uvc.0"));
    EXPECT_EQ(nodes[1].videoPath, "/dev/video3");
    EXPECT_TRUE(notes.empty());
}

TEST_F(Discovery, PrefersTheBoundGadgetAndHonoursAGivenList) {
    node("video2", "a", "uvc.0");
    node("video2", "b", "uvc.0");
    root.write("config/usb_gadget/b/UDC", "dummy_udc.0\n");
    std::vector<std::string> notes;
    EXPECT_EQ(discovery.find("", notes).at(0).functionDir, functionDir("b", "uvc.0"));

    const std::vector<GadgetNode> listed =
        discovery.find("/tmp/v9=/cfg/uvc.x,/dev/video2,/dev/video7", notes);
    ASSERT_EQ(listed.size(), 2u);
    EXPECT_EQ(listed[0].functionDir, "/cfg/uvc.x");
    EXPECT_EQ(listed[1].videoPath, "/dev/video2");
    EXPECT_EQ(listed[1].functionDir, functionDir("b", "uvc.0"));
    ASSERT_EQ(notes.size(), 1u);  // video7 has no function
    EXPECT_NE(notes[0].find("/dev/video7"), std::string::npos);
}

TEST_F(Discovery, NumbersAtMostEightStreams) {
    std::string list;
    for (int i = 0; i < 10; ++i)
        list += "/dev/video" + std::to_string(i) + "=/cfg/uvc." + std::to_string(i) + ",";
    std::vector<std::string> notes;
    const std::vector<GadgetNode> nodes = discovery.find(list, notes);
    ASSERT_EQ(nodes.size(), kMaxStreams);
    EXPECT_EQ(nodes[4].streamId, 1);
    EXPECT_EQ(nodes[4].streamIdx, 0);
    EXPECT_EQ(notes.size(), 2u);
}
