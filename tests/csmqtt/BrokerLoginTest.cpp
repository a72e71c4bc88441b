#include "tests/csmqtt/support/Csmqtt.h"
#include "tests/support/OwnAddress.h"
#include "tests/support/Waiting.h"

namespace com_tesk::mqtt_test {

class BrokerLogin : public BridgeTest {
  protected:
    /// Makes `ca.pem`, and two certificates that it has signed: `server.pem` of the broker's address, and `named.pem`
    /// of another.
    void makeCertificates() const {
        const std::string key = " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
        ASSERT_TRUE(files.run("openssl req -x509 -days 2 -subj /CN=ca -keyout ca.key -out ca.pem" + key));
        ASSERT_TRUE(files.run("openssl req -x509 -days 2 -subj /CN=other -keyout other.key -out other.pem" + key));
        ASSERT_TRUE(files.run("openssl req -subj /CN=broker -keyout server.key -out server.csr" + key));
        const std::pair<const char*, std::string> certificates[] = {{"server.pem", test::ownAddress()},
                                                                    {"named.pem", "127.0.0.1"}};
        for (const auto& [file, address] : certificates) {
            files.write("extensions", "subjectAltName=IP:" + address + "\n");
            ASSERT_TRUE(
                files.run("openssl x509 -req -days 2 -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial "
                          "-extfile extensions -out " +
                          std::string(file)));
        }
    }
};

TEST_F(BrokerLogin, AWrongPasswordIsReportedAndTriedAgain) {
    LoopbackHost host(hostOptions());
    files.write("users", "");
    ASSERT_TRUE(files.run("mosquitto_passwd -b users bridge right"));
    TestBroker broker("allow_anonymous false\npassword_file " + files.path("users") + "\n");
    files.write("password", "wrong\n");
    Csmqtt csmqtt({"--config", config("{address: '" + broker.address() + "', user: bridge, password-file: password}",
                                      "to_mqtt: [x]\n")});
    ASSERT_TRUE(csmqtt.waitForErr("uthori"));  // "Not authorized", or "authorised".
    files.write("password", "right\n");
    EXPECT_TRUE(csmqtt.waitForErr("connected as csmqtt-b"));
    csmqtt.expectCleanEnd();
}

TEST_F(BrokerLogin, TlsNeedsACertificateOfTheRightAuthority) {
    LoopbackHost host(hostOptions());
    makeCertificates();
    TestBroker broker("allow_anonymous true\ncertfile " + files.path("server.pem") + "\nkeyfile " +
                      files.path("server.key") + "\n");
    const auto withTls = [&](const std::string& file, const std::string& address) {
        return "{address: '" + address + "', tls: {ca: " + file + "}}";
    };
    {
        Csmqtt csmqtt({"--config", config(withTls("ca.pem", broker.address()),
                                          "to_mqtt: [x, {name: y, qos: 1}]\nfrom_mqtt: [z]\n")});
        EXPECT_TRUE(csmqtt.waitForErr("connected as csmqtt-b"));
        csmqtt.expectCleanEnd();
    }
    {
        Csmqtt csmqtt({"--config", config(withTls("other.pem", broker.address()), "to_mqtt: [x]\n")});
        EXPECT_TRUE(csmqtt.waitForErr("certificate verify failed"));
        csmqtt.expectCleanEnd();
        EXPECT_EQ(csmqtt.errText().find("connected as"), std::string::npos);
    }
    {
        // The certificate does not have this address.
        const TestBroker named("allow_anonymous true\ncertfile " + files.path("named.pem") + "\nkeyfile " +
                               files.path("server.key") + "\n");
        Csmqtt csmqtt({"--config", config(withTls("ca.pem", named.address()), "to_mqtt: [x]\n")});
        EXPECT_TRUE(csmqtt.waitForErr("trying again"));
        csmqtt.expectCleanEnd();
        EXPECT_EQ(csmqtt.errText().find("connected as"), std::string::npos);
    }
    {
        // Without TLS.
        Csmqtt csmqtt({"--config", config(broker.address(), "to_mqtt: [x]\n")});
        EXPECT_TRUE(csmqtt.waitForErr("trying again"));
        csmqtt.expectCleanEnd();
        EXPECT_EQ(csmqtt.errText().find("connected as"), std::string::npos);
    }
}

TEST_F(BrokerLogin, TlsIsRefusedAtOnceWhereNoBrokerListens) {
    for (const std::string& place : {test::ownAddress(), std::string("localhost")}) {
        const std::string address = place + ':' + std::to_string(unusedPort());
        Csmqtt csmqtt({"--config", config("{address: '" + address + "', tls: true}", "to_mqtt: [x]\n")});
        EXPECT_TRUE(csmqtt.waitForErr("broker " + address + ": Connection refused; trying again"));
        csmqtt.expectCleanEnd();
    }
}

TEST_F(BrokerLogin, TlsPassesValuesInBothDirections) {
    LoopbackHost host(hostOptions());
    makeCertificates();
    const std::uint16_t plain = unusedPort();
    TestBroker broker("allow_anonymous true\ncertfile " + files.path("server.pem") + "\nkeyfile " +
                      files.path("server.key") + "\nlistener " + std::to_string(plain) + ' ' + test::ownAddress() +
                      "\n");
    Subscriber subscriber(plain);
    const Csmqtt csmqtt({"--config", config("{address: '" + broker.address() + "', tls: {ca: ca.pem}}",
                                            "to_mqtt: [x]\nfrom_mqtt: [z]\n")});
    ASSERT_TRUE(subscriber.waitFor("b/v/x", "0"));
    host.setValue("x", HostValue::real(2));
    EXPECT_TRUE(subscriber.waitFor("b/v/x", "2"));
    // Many messages share a record of TLS.
    for (int i = 1; i <= 500; ++i) {
        subscriber.publish("b/set/z", std::to_string(i));
    }
    EXPECT_TRUE(host.waitForValue("z", HostValue::real(500), kWaitBound));
}

}  // namespace com_tesk::mqtt_test
