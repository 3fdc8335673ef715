// Bytes that no sane client sends. Each may end the session that sent it, and nothing else.
#include <optional>
#include <string>
#include <vector>

#include "tests/driver/entry_fixture.h"
#include "tests/support/test_thread.h"

namespace valmere::test {
namespace {

constexpr std::size_t kIdentifierBytes = 16;
constexpr std::size_t kHeaderBytes = 20;
constexpr std::uint32_t kLargest = 4'194'304;

std::string Repeated(std::string_view text, std::size_t times) {
  std::string all;
  all.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i)
    all += text;
  return all;
}

// A frame whose length field does not tell the truth.
std::string FrameClaiming(std::string_view text, std::uint32_t length) {
  return IdentifierBytes() + LengthBytes(length) + std::string(text);
}

class BadInputTest : public EntryTest {
 protected:
  // Another session, open all the time, must be answered after anything that was sent.
  void TearDown() override {
    if (bystander_) ExpectOthersServed();
    bystander_.reset();
  }
  void SetUp() override {
    EntryTest::SetUp();
    bystander_.emplace();
    ExpectOthersServed();
  }
  void ExpectOthersServed() {
    ASSERT_EQ(bystander_->Ask(GetText(kOwnComponent)), OwnComponentText());
  }

  // Sends the bytes, on a session just opened and on one in use; both must end, keep taking bytes
  // and hurt no other.
  void ExpectEnded(const std::string& bytes) {
    for (const bool in_use : {false, true}) {
      Client client;
      if (in_use) {
        ASSERT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText());
      }
      ASSERT_TRUE(client.SendBytes(bytes));
      EXPECT_EQ(client.Receive(), std::nullopt);
      EXPECT_TRUE(client.Send(GetText(kOwnComponent)));
      EXPECT_EQ(client.Receive(), std::nullopt);
      EXPECT_TRUE(client.Close());
      ExpectOthersServed();
    }
  }

  std::optional<Client> bystander_;
};

TEST_F(BadInputTest, NoBufferIsNeitherFilledNorRead) {
  Client client;
  EXPECT_TRUE(client.Send(GetText(kOwnComponent)));
  EXPECT_EQ(PRN_Write(client.handle(), nullptr, 5), -1);
  EXPECT_EQ(PRN_Read(client.handle(), nullptr, 5), 5u);
  EXPECT_EQ(client.Receive(), OwnComponentText());
  EXPECT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText());
}

TEST_F(BadInputTest, AFrameOfTheWrongLengthEndsTheSession) {
  const std::string text = GetText(kOwnComponent);
  const auto length = static_cast<std::uint32_t>(text.size());
  ExpectEnded(FrameOf(""));
  ExpectEnded(FrameClaiming(text, 0));
  ExpectEnded(FrameClaiming(text, length + 1));
  ExpectEnded(FrameClaiming(text, length - 1));
  ExpectEnded(FrameClaiming(text, kLargest));
  ExpectEnded(FrameClaiming(text, 0x80000000));
  ExpectEnded(FrameClaiming(text, 0xffffffff));
}

TEST_F(BadInputTest, AnOversizedFrameIsRefusedBeforeItsBodyIsThere) {
  ExpectEnded(FrameClaiming("", kLargest + 1));
  ExpectEnded(FrameClaiming("", 0xffffffff));
}

TEST_F(BadInputTest, TheLargestFrameIsAccepted) {
  std::string text = R"({"GetAllProperties": true,"Padding": ")";
  text.append(kLargest - text.size() - 2, 'x').append("\"}");
  ASSERT_EQ(text.size(), kLargest);
  Client client;
  const std::optional<std::string> expected = bystander_->Ask(R"({"GetAllProperties": true})");
  EXPECT_EQ(client.Ask(text), expected);
  EXPECT_EQ(client.Ask(text), expected);
}

// Cut anywhere, a frame after others leaves the session either ended or waiting for the rest.
TEST_F(BadInputTest, AFrameCutShortEndsTheSessionOrLeavesItWaiting) {
  const std::string frame = FrameOf(GetText(kOwnComponent));
  for (std::size_t cut = 1; cut < frame.size(); ++cut) {
    Client client;
    ASSERT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText());
    ASSERT_TRUE(client.SendBytes(frame.substr(0, cut)));
    const bool between_fields = cut == kIdentifierBytes || cut == kHeaderBytes;
    if (between_fields) {
      ASSERT_TRUE(client.SendBytes(frame.substr(cut)));
      EXPECT_EQ(client.Receive(), OwnComponentText()) << cut;
    } else {
      EXPECT_EQ(client.Receive(), std::nullopt) << cut;
    }
    ExpectOthersServed();
  }
}

TEST_F(BadInputTest, AFirstFrameCutShortHoldsUpNobody) {
  const std::string frame = FrameOf(GetText(kOwnComponent));
  std::vector<std::unique_ptr<Client>> waiting;
  for (std::size_t cut = 1; cut < frame.size(); ++cut) {
    waiting.push_back(std::make_unique<Client>());
    ASSERT_TRUE(waiting.back()->SendBytes(frame.substr(0, cut)));
  }
  ExpectOthersServed();
  for (const auto& client : waiting)
    EXPECT_TRUE(client->Close());
}

TEST_F(BadInputTest, TextThatIsNoObjectEndsTheSession) {
  for (const char* text : {"nonsense",
                           "null",
                           "true",
                           "5",
                           "-1.5e3",
                           "\"text\"",
                           "[]",
                           "[{}]",
                           "{",
                           "}",
                           "{]",
                           "[1,2",
                           R"({"a" 1})",
                           R"({"a": })",
                           R"({"a": 1)",
                           R"({"GetAllProperties": true)",
                           R"({"GetAllProperties": "unended})",
                           R"({a: 1})",
                           R"({'a': '\uZZZZ'})",
                           R"({"GetAllProperties": tru})",
                           "\n",
                           "\xef\xbb\xbf[]",
                           "\xff\xfe\xfd"})
    ExpectEnded(FrameOf(text));
}

TEST_F(BadInputTest, ZeroBytesAreNoText) {
  ExpectEnded(FrameOf(std::string(1, '\0')));
  ExpectEnded(FrameOf(std::string(1000, '\0')));
}

TEST_F(BadInputTest, TextTooDeepEndsTheSession) {
  for (const std::size_t depth : {12'000, 500'000}) {
    ExpectEnded(FrameOf(Repeated("[", depth)));
    ExpectEnded(FrameOf(Repeated("[", depth) + Repeated("]", depth)));
    ExpectEnded(FrameOf(Repeated("{\"a\":", depth)));
    ExpectEnded(
        FrameOf(R"({"GetAllProperties": )" + Repeated("[", depth) + Repeated("]", depth) + "}"));
    ExpectEnded(FrameOf(Repeated("{\"a\":", depth) + "1" + Repeated("}", depth)));
  }
}

// As deep as the parser goes, on a worker's stack: answered or ended, but never worse.
TEST_F(BadInputTest, DeepTextIsAnsweredOrEndsTheSession) {
  const std::optional<std::string> all = bystander_->Ask(R"({"GetAllProperties": true})");
  for (const std::size_t depth : {100, 1000, 2400, 3300, 4900, 9900}) {
    for (const std::string& nest : {Repeated("[", depth) + Repeated("]", depth),
                                    Repeated(R"({"a":)", depth) + "1" + Repeated("}", depth)}) {
      Client client;
      const auto answer = client.Ask(R"({"GetAllProperties": )" + nest + "}");
      if (answer || depth <= 100) {
        EXPECT_EQ(answer, all) << depth;
      }
      ExpectOthersServed();
    }
  }
}

TEST_F(BadInputTest, GarbageBeforeTheIdentifierIsNeverServed) {
  for (const std::size_t garbage : {1, 15, 16, 17, 32, 33, 64, 1000}) {
    Client client;
    ASSERT_TRUE(client.SendBytes(std::string(garbage, 'g') + FrameOf(GetText(kOwnComponent))));
    for (int i = 0; i < 20; ++i)
      ASSERT_TRUE(client.Send(GetText(kOwnComponent)));
    ExpectOthersServed();
    // Nothing may have been sent to it. Its handle is closed while its reader waits or before that.
    bool answered = false;
    {
      TestThread reader([&] { answered = client.Receive().has_value(); });
      ExpectOthersServed();
      client.Close();
    }
    EXPECT_FALSE(answered) << garbage;
  }
}

TEST_F(BadInputTest, AnIdentifierInDribsIsRecognised) {
  const std::string frame = FrameOf(GetText(kOwnComponent));
  for (std::size_t piece = 1; piece <= kIdentifierBytes; ++piece) {
    Client client;
    ASSERT_TRUE(client.SendInPieces(frame.substr(0, kIdentifierBytes), piece));
    ASSERT_TRUE(client.SendBytes(frame.substr(kIdentifierBytes)));
    EXPECT_EQ(client.Receive(), OwnComponentText()) << piece;
    EXPECT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText()) << piece;
  }
}

TEST_F(BadInputTest, FieldsThatComeOneByOneAreServed) {
  const std::string frame = FrameOf(GetText(kOwnComponent));
  Client client;
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(client.SendBytes(frame.substr(0, 16)));
    ASSERT_TRUE(client.SendBytes(frame.substr(16, 4)));
    ASSERT_TRUE(client.SendBytes(frame.substr(20)));
    ASSERT_EQ(client.Receive(), OwnComponentText());
  }
}

TEST_F(BadInputTest, WrongIdentifiersOfLaterFramesAreNotLookedAt) {
  Client client;
  ASSERT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText());
  std::string frame = FrameOf(GetText(kOwnComponent));
  frame.replace(0, 16, 16, '?');
  ASSERT_TRUE(client.SendBytes(frame));
  EXPECT_EQ(client.Receive(), OwnComponentText());
}

TEST_F(BadInputTest, RequestsOfTheWrongTypeHaveNoEntries) {
  Client client;
  for (const char* value : {"5", "\"text\"", "true", "null", "{}", R"({"GUID": "g:p"})", "[]"}) {
    const std::string quoted(value);
    EXPECT_EQ(client.Ask(R"({"PropertyGetRequests": )" + quoted + "}"), Responses("")) << value;
    ASSERT_TRUE(client.Send(R"({"PropertySetRequests": )" + quoted + "}"));
    ASSERT_TRUE(client.Send(R"({"PropertyGetResponses": )" + quoted + "}"));
    ASSERT_TRUE(client.Send(R"({"PropertySubscribeRequests": )" + quoted + "}"));
    EXPECT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText()) << value;
  }
}

TEST_F(BadInputTest, EntriesOfTheWrongTypeAreEmpty) {
  const std::string nothing = Entry({"", ":"}, "Unknown Group", "Unknown Group", "Unknown Property",
                                    "Property Not Found", "Invalid Value");
  Client client;
  for (const char* entry : {"5", "\"text\"", "true", "null", "{}", "[]", R"([{"GUID": "g:p"}])",
                            R"({"GUID": 5,"Component": {}})", R"({"GUID": ["g:p"]})"}) {
    const std::string requests = std::string("[") + entry + "]}";
    EXPECT_EQ(client.Ask(R"({"PropertyGetRequests": )" + requests), Responses(nothing)) << entry;
    ASSERT_TRUE(client.Send(R"({"PropertySetRequests": )" + requests));
    ASSERT_TRUE(client.Send(R"({"PropertyGetResponses": )" + requests));
    ASSERT_TRUE(client.Send(R"({"PropertySubscribeRequests": )" + requests));
    EXPECT_EQ(client.Ask(GetText(kOwnComponent)), OwnComponentText()) << entry;
  }
}

TEST_F(BadInputTest, AValueThatIsNoStringIsEmpty) {
  const Address address = {"C", "G:P"};
  Client client;
  ASSERT_TRUE(client.Send(PublishedText(address, "before")));
  ASSERT_TRUE(client.Send(R"({"PropertyGetResponses": [{"Component": "C","GUID": "G:P",)"
                          R"("Status": "Successful","Value": 5}]})"));
  EXPECT_EQ(client.Ask(GetText(address)), PublishedText(address, ""));
}

TEST_F(BadInputTest, AGuidWithoutAColonNamesBothTheSame) {
  Client client;
  EXPECT_EQ(client.Ask(GetText({"C", "lonely"})), NotFoundText({"C", "lonely:lonely"}));
}

}  // namespace
}  // namespace valmere::test
