#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CameraTestSupport.h"
#include "camera/UvcCamMsgHandler.h"
#include "trevo/CompositorBridge.h"
#include "trevo_host.h"

using camera_test::StdoutCapture;
using camera_test::TableGuard;
using trevo_standin::Host;
using Texts = std::vector<std::string>;

namespace {

// Replies handed to a real bridge object reach the host unchanged and in
// order.
class UvcCamMsgHandlerHostTest : public ::testing::Test {
protected:
    void SetUp() override { Host::instance().reset(); }
    void TearDown() override { Host::instance().reset(); }
    void handle(const std::string& message) {
        StdoutCapture quiet;
        handler.handleMessage(message, bridge);
        quiet.finish();
    }

    TableGuard guard;
    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
    uvc_client::UvcCamMsgHandler handler;
};

}  // namespace

TEST_F(UvcCamMsgHandlerHostTest, GetOnFreshTableReachesTheHost) {
    handle(R"({"msg_type":"uvc_report","content":{"brightness":"get"}})");
    EXPECT_EQ(Host::instance().appMessages(),
              (Texts{R"({ "source": "app", "response": { "brightness": "-255" } })"}));
    EXPECT_EQ(Host::instance().countCalls("onAppMessage"), 1u);
}

TEST_F(UvcCamMsgHandlerHostTest, SetThenGetReturnsTheNewValue) {
    handle(R"({"msg_type":"uvc_report","content":{"whiteBalanceTemp":"set","value":"5600"}})");
    EXPECT_TRUE(Host::instance().appMessages().empty());
    handle(R"({"msg_type":"uvc_report","content":{"whiteBalanceTemp":"get","gain":"get"}})");
    EXPECT_EQ(Host::instance().appMessages(),
              (Texts{R"({ "source": "app", "response": { "gain": "-255" } })",
                     R"({ "source": "app", "response": { "whiteBalanceTemp": "5600" } })"}));
}
