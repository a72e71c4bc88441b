#include <stdexcept>

#include "tests/client/ClientFixtures.h"
#include "tests/support/CapturedStreams.h"

namespace com_tesk::test {
namespace {

/// The first count that a list of names cannot hold.
constexpr unsigned int kTooManyNames = 1'073'741'824;

/// Records the requests for batches instead of sending them.
template <typename Kind>
class RegistrationForwarding : public ForEachKind<Kind> {
  protected:
    RegistrationForwarding() {
        this->client.probed->onSend = [this](const std::string& call) {
            const std::string kind = std::string(" ") + Kind::kWord + "s";
            const std::size_t place = call.find(kind);
            calls.push_back(place == std::string::npos ? call : std::string(call).erase(place, kind.size()));
            return result;
        };
    }

    Lines names() const {
        Lines found;
        for (const std::string& line : (this->client.probed->*Kind::kTable)()) {
            found.push_back(line.substr(0, line.find(' ')));
        }
        return found;
    }

    Lines calls;
    int result = 0;
    const std::vector<typename Kind::Definition> bThenA{Kind::define("B"), Kind::define("A")};
    const typename Kind::Definition untyped = Kind::define("A", CSClient::TYPE_UNDEFINED);
};

TYPED_TEST_SUITE(RegistrationForwarding, Kinds, KindNames);

TYPED_TEST(RegistrationForwarding, SendsEachCallInOneRequestInItsOrder) {
    EXPECT_EQ(TypeParam::registerOne(this->client, TypeParam::define("X", CSClient::TYPE_INT)), 0);
    EXPECT_EQ((this->client.probed->*TypeParam::kTable)().at(0).substr(0, 8), "X type 2");
    EXPECT_EQ(TypeParam::registerMany(this->client, this->bThenA), 0);
    const typename TypeParam::Definition array[] = {TypeParam::define("D"), TypeParam::define("C"), this->untyped};
    EXPECT_EQ(TypeParam::registerMany(this->client, array, 2U), 0);
    EXPECT_EQ(this->calls, (Lines{"register X", "register B A", "register D C"}));
    EXPECT_EQ(this->names(), (Lines{"A", "B", "C", "D", "X"}));
}

TYPED_TEST(RegistrationForwarding, EmptyListsReturnZeroAndSendNothing) {
    TypeParam::registerOne(this->client, TypeParam::define("A"));
    this->calls.clear();
    this->result = 2;
    EXPECT_EQ(TypeParam::registerMany(this->client, nullptr, 0U), 0);
    EXPECT_EQ(TypeParam::registerMany(this->client, std::vector<typename TypeParam::Definition>{}), 0);
    EXPECT_EQ(TypeParam::unregisterMany(this->client, Lines{}), 0);
    EXPECT_EQ(TypeParam::unregisterMany(this->client, nullptr, 0U), 0);
    TestFixture::OtherKind::unregisterAll(this->client);
    EXPECT_EQ(this->calls, Lines{});
    EXPECT_EQ(this->names(), Lines{"A"});
}

TYPED_TEST(RegistrationForwarding, ReturnsTheResultOfTheRequest) {
    const auto first = TypeParam::define("A");
    const auto second = TypeParam::define("B");
    this->result = 2;
    EXPECT_EQ(TypeParam::registerOne(this->client, first), 2);
    EXPECT_EQ(TypeParam::registerMany(this->client, &second, 1U), 2);
    EXPECT_EQ(TypeParam::registerMany(this->client, std::vector{TypeParam::define("C")}), 2);
    EXPECT_EQ(TypeParam::unregisterOne(this->client, "A"), 2);
    EXPECT_EQ(TypeParam::unregisterMany(this->client, Lines{"A"}), 2);
    EXPECT_EQ(TypeParam::unregisterMany(this->client, &first, 1U), 2);
    EXPECT_EQ(this->names(), (Lines{"A", "B", "C"})) << "a failed write erases nothing";
}

TYPED_TEST(RegistrationForwarding, ReportsARefusalAndPrintsOneLine) {
    const CapturedStreams streams;
    TestClient printing(0);
    EXPECT_EQ(TypeParam::registerOne(printing, this->untyped), 3);
    EXPECT_EQ(streams.err(), TypeParam::invalidType("A"));
    EXPECT_EQ(TypeParam::registerOne(this->client, this->untyped), 3);
    EXPECT_EQ(TypeParam::registerMany(this->client, &this->untyped, 1U), 3);
    EXPECT_EQ(TypeParam::registerMany(this->client, std::vector{this->untyped}), 3);
    EXPECT_EQ(this->calls, Lines{});
    EXPECT_EQ(streams.out(), "");
}

TYPED_TEST(RegistrationForwarding, UnregistersNamesInTheirOrder) {
    TypeParam::registerMany(this->client, this->bThenA);
    EXPECT_EQ(TypeParam::unregisterMany(this->client, Lines{"B", "unknown", "A"}), 0);
    EXPECT_EQ(this->calls.back(), "unregister B A");
    EXPECT_EQ(this->names(), Lines{});
    TypeParam::registerMany(this->client, this->bThenA);
    EXPECT_EQ(TypeParam::unregisterOne(this->client, "B"), 0);
    EXPECT_EQ(this->calls.back(), "unregister B");
    EXPECT_EQ(this->names(), Lines{"A"});
}

TYPED_TEST(RegistrationForwarding, UnregistersTheNamesOfDefinitionsInTheirOrder) {
    const typename TypeParam::Definition definitions[] = {this->bThenA[0], this->untyped, TypeParam::define("C")};
    TypeParam::registerMany(this->client, this->bThenA);
    TypeParam::registerOne(this->client, definitions[2]);
    EXPECT_EQ(TypeParam::unregisterMany(this->client, definitions, 2U), 0);
    EXPECT_EQ(this->calls.back(), "unregister B A");
    EXPECT_EQ(this->names(), Lines{"C"});
}

TYPED_TEST(RegistrationForwarding, UnregistersAllOfOneKindInNameOrder) {
    TypeParam::registerMany(this->client, this->bThenA);
    TestFixture::OtherKind::registerOne(this->client, TestFixture::OtherKind::define("A"));
    TypeParam::unregisterAll(this->client);
    EXPECT_EQ(this->calls.back(), "unregister A B");
    EXPECT_EQ(this->names(), Lines{});
    EXPECT_EQ(TestFixture::OtherKind::unconfirmed(this->client), 1);
}

TYPED_TEST(RegistrationForwarding, ThrowsForMoreDefinitionsThanAListCanHold) {
    // The client refuses the count before it reads the definitions.
    for (const unsigned int count : {kTooManyNames, 0xFFFFFFFFU}) {
        SCOPED_TRACE(count);
        try {
            TypeParam::unregisterMany(this->client, nullptr, count);
            ADD_FAILURE() << "no exception";
        } catch (const std::length_error& error) {
            EXPECT_STREQ(error.what(), "vector::reserve");
        }
    }
}

/// A protocol may replace the engine's operations on inputs. This one records them.
class ReplacedInputsEngine : public TestEngine {
  public:
    using TestEngine::TestEngine;

    int registerInputParameters(const CSClient::InputDef* definitions, unsigned int count) override {
        lastDefinitions = definitions;
        Lines names;
        for (unsigned int i = 0; i < count; ++i) {
            names.push_back(definitions[i].name);
        }
        return record("register", names);
    }
    int unregisterInputParameters(const std::vector<std::string>& names) override {
        return record("unregister", names);
    }

    Lines calls;
    int result = 0;
    const CSClient::InputDef* lastDefinitions = nullptr;

  private:
    int record(std::string line, const Lines& names) {
        for (const std::string& name : names) {
            line += ' ' + name;
        }
        calls.push_back(line);
        return result;
    }
};

class ReplacedInputs : public testing::Test {
  protected:
    ReplacedInputs() { engine.result = -5; }

    ClientOf<ReplacedInputsEngine> client;
    ReplacedInputsEngine& engine = *client.probed;
    const std::vector<CSClient::InputDef> bThenA{input("B"), input("A")};
};

TEST_F(ReplacedInputs, AreRegisteredFromTheMemoryOfTheCaller) {
    EXPECT_EQ(client.registerInputParameter(bThenA[1]), -5);
    EXPECT_EQ(engine.lastDefinitions, &bThenA[1]);
    EXPECT_EQ(client.registerInputParameters(bThenA), -5);
    EXPECT_EQ(engine.lastDefinitions, bThenA.data());
    EXPECT_EQ(client.registerInputParameters(bThenA.data() + 1, 1), -5);
    EXPECT_EQ(engine.lastDefinitions, bThenA.data() + 1);
    EXPECT_EQ(engine.calls, (Lines{"register A", "register B A", "register A"}));
}

TEST_F(ReplacedInputs, AreUnregistered) {
    EXPECT_EQ(client.unregisterInputParameter("A"), -5);
    EXPECT_EQ(client.unregisterInputParameters(Lines{"B", "A", "B"}), -5);
    EXPECT_EQ(client.unregisterInputParameters(bThenA.data(), 2), -5);
    engine.TestEngine::registerInputParameters(bThenA.data(), 2);
    client.unregisterAllInputParameters();
    EXPECT_EQ(engine.calls, (Lines{"unregister A", "unregister B A B", "unregister B A", "unregister A B"}));
}

TEST_F(ReplacedInputs, AreCalledForEmptyListsButNotForAnEmptyVector) {
    EXPECT_EQ(client.registerInputParameters(std::vector<CSClient::InputDef>{}), 0);
    EXPECT_THROW(client.unregisterInputParameters(nullptr, 0xFFFFFFFFU), std::length_error);
    EXPECT_EQ(engine.calls, Lines{});
    EXPECT_EQ(client.registerInputParameters(nullptr, 0), -5);
    EXPECT_EQ(client.unregisterInputParameters(Lines{}), -5);
    EXPECT_EQ(client.unregisterInputParameters(nullptr, 0), -5);
    EXPECT_EQ(engine.calls, (Lines{"register", "unregister", "unregister"}));
}

using Parameters = std::vector<CSClient::Parameter>;

/// Has the outputs A, a float, and B, an integer. Records the requests instead of sending them.
class PublishForwarding : public testing::Test {
  protected:
    PublishForwarding() {
        client.registerOutputParameters({output("A"), output("B", CSClient::TYPE_INT)});
        client.probed->onSend = [this](const std::string& call) {
            calls.push_back(call);
            return result;
        };
    }

    Lines calls;
    int result = 0;
    TestClient client;
    const Parameters bThenA{intParameter("B", -2), floatParameter("A", 1.5F)};
};

TEST_F(PublishForwarding, SendsEachCallInOneRequestInModeZero) {
    EXPECT_EQ(client.publishParameter(intParameter("B", 7)), 0);
    EXPECT_EQ(client.publishParameters(bThenA.data(), 1), 0);
    EXPECT_EQ(client.probed->outputTable(),
              (Lines{"A type 1 waiting 00000000", "B type 2 waiting published FFFFFFFE"}));
    EXPECT_EQ(client.publishParameters(bThenA.data(), 2), 0);
    EXPECT_EQ(client.publishParameters(bThenA), 0);
    EXPECT_EQ(calls, (Lines{"publish mode 0 B", "publish mode 0 B", "publish mode 0 B A", "publish mode 0 B A"}));
    EXPECT_EQ(client.probed->outputTable(),
              (Lines{"A type 1 waiting published 3FC00000", "B type 2 waiting published FFFFFFFE"}));
}

TEST_F(PublishForwarding, ReturnsTheResultOfTheRequest) {
    result = 2;
    EXPECT_EQ(client.publishParameter(bThenA[0]), 2);
    EXPECT_EQ(client.publishParameters(bThenA.data(), 1), 2);
    EXPECT_EQ(client.publishParameters(bThenA), 2);
    calls.clear();
    EXPECT_EQ(client.publishParameters(nullptr, 0), 0);
    EXPECT_EQ(client.publishParameters(Parameters{}), 0);
    const CSClient::Parameter unknown = floatParameter("unknown", 1.5F);
    EXPECT_EQ(client.publishParameter(unknown), 3);
    EXPECT_EQ(client.publishParameters(&unknown, 1), 3);
    EXPECT_EQ(client.publishParameters(Parameters{unknown}), 3);
    EXPECT_EQ(calls, Lines{}) << "for empty lists and refused records";
}

TEST_F(PublishForwarding, ReadsPublishedValuesBack) {
    client.publishParameters(bThenA);
    CSClient::Parameter found;
    found.reserved = 99;
    EXPECT_TRUE(client.findPublishedParameter("A", found));
    EXPECT_EQ(text(found), "A type 1 bits 3FC00000 reserved 99");
    found.type = CSClient::TYPE_INT;
    EXPECT_TRUE(client.findPublishedParameter("B", found));
    EXPECT_EQ(text(found), "B type 2 bits FFFFFFFE reserved 99");
    EXPECT_FALSE(client.findPublishedParameter("unknown", found));
    EXPECT_EQ(text(found), "B type 2 bits FFFFFFFE reserved 99");
    Parameters all{floatParameter("mine", 0.0F)};
    client.getAllPublishedParameters(all);
    EXPECT_EQ(texts(all), (Lines{"mine type 1 bits 00000000 reserved 0", "A type 1 bits 3FC00000 reserved 0",
                                 "B type 2 bits FFFFFFFE reserved 0"}));
}

}  // namespace
}  // namespace com_tesk::test
