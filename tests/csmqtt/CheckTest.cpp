#include <sys/stat.h>

#include "tests/csmqtt/support/Csmqtt.h"

namespace com_tesk::mqtt_test {

namespace {

using Check = BridgeTest;

constexpr int kUsage = 1;
constexpr int kInvalidConfig = 2;

}  // namespace

TEST_F(Check, PrintsWhatWouldBeDone) {
    const std::string path = files.write("c.yaml", R"(
host: sim.example
broker: {address: broker.example, tls: true, user: bridge, client-id: me}
base: hall/3
stale: clear
to_mqtt: [altitude, {name: a/b, type: integer, rate: 5Hz, qos: 1, payload: json}]
from_mqtt: [{name: switch, type: integer, min: 0, max: 1}]
)");
    Csmqtt csmqtt({"--config", path, "--check"});
    EXPECT_EQ(csmqtt.exitCode(), 0);
    EXPECT_EQ(csmqtt.errText(), "");
    EXPECT_EQ(csmqtt.outText(),
              "host       sim.example:55580, as simulator 1, asked every 2 s\n"
              "broker     broker.example:8883, MQTT 5, TLS with the system's certificates, user bridge without a "
              "password, client id me, keep-alive 15 s\n"
              "base       hall/3: while the host is down, values are cleared\n"
              "to_mqtt    2\n"
              "  altitude  float    to hall/3/v/altitude, text, QoS 0, retained\n"
              "  a/b       integer  to hall/3/v/a%2Fb, JSON, QoS 1, retained, at most 5 Hz\n"
              "from_mqtt  1\n"
              "  switch  integer  from hall/3/set/switch, text, from 0, up to 1\n");
}

TEST_F(Check, NamesTheLineOfEachFlaw) {
    const std::string path = files.write("c.yaml", "host: h\nbroker: b\nbas: x\nto_mqtt: [a]\nfrom_mqtt: [a]\n");
    Csmqtt csmqtt({"--config", path, "--check"});
    EXPECT_EQ(csmqtt.exitCode(), kInvalidConfig);
    EXPECT_NE(csmqtt.errText().find(path + R"(:3:1: unknown key "bas"; did you mean "base"?)"), std::string::npos)
        << csmqtt.errText();
    EXPECT_NE(csmqtt.errText().find(path + ":5:13: the name a is also in to_mqtt"), std::string::npos)
        << csmqtt.errText();
    EXPECT_EQ(csmqtt.outText(), "");
}

TEST_F(Check, RefusesAPasswordThatOthersCanRead) {
    const std::string password = files.write("password", "secret\n");
    chmod(password.c_str(), S_IRUSR | S_IROTH);
    Csmqtt csmqtt({"--config", config("{address: b, user: u, password-file: password}", "to_mqtt: [x]\n")});
    EXPECT_EQ(csmqtt.exitCode(), kInvalidConfig);
    EXPECT_NE(csmqtt.errText().find("other users can access " + password + "; run: chmod o= " + password),
              std::string::npos)
        << csmqtt.errText();
}

TEST_F(Check, RefusesAPasswordThatIsAPipe) {
    const std::string pipe = files.path("password");
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    Csmqtt csmqtt({"--config", config("{address: b, user: u, password-file: password}", "to_mqtt: [x]\n")});
    EXPECT_EQ(csmqtt.exitCode(), kInvalidConfig);
    EXPECT_NE(csmqtt.errText().find(pipe + " is a pipe"), std::string::npos) << csmqtt.errText();
}

TEST_F(Check, EndsWithOneForAWrongCommandLine) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{},
                                                      {"--config"},
                                                      {"--config", "c", "--nonsense"},
                                                      {"--config", "c", "--metrics", ":"}}) {
        Csmqtt csmqtt(arguments);
        EXPECT_EQ(csmqtt.exitCode(), kUsage);
        EXPECT_NE(csmqtt.errText(), "");
    }
    Csmqtt directory({"--config", files.path("")});
    EXPECT_EQ(directory.exitCode(), kInvalidConfig);
    EXPECT_NE(directory.errText().find("cannot read the file: Is a directory"), std::string::npos)
        << directory.errText();
    Csmqtt missing({"--config", files.path("missing.yaml")});
    EXPECT_EQ(missing.exitCode(), kInvalidConfig);
    EXPECT_NE(missing.errText().find("missing.yaml: cannot read the file"), std::string::npos) << missing.errText();
}

TEST_F(Check, RefusesAConfigurationWithoutAnEnd) {
    Csmqtt csmqtt({"--config", "/dev/zero", "--check"});
    EXPECT_EQ(csmqtt.exitCode(), kInvalidConfig);
    EXPECT_EQ(csmqtt.errText(), "csmqtt: /dev/zero: the file is larger than 64 MiB\n");
}

}  // namespace com_tesk::mqtt_test
