#include "soak/kills_trial.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "base/clock.h"
#include "base/files.h"
#include "deployment/deployment.h"
#include "game/week.h"
#include "sandbox/companion.h"
#include "tests/support/child_process.h"
#include "wallet/keys/wallet_keys.h"
#include "wallet/payment/pay_drivers.h"
#include "wallet/protocol/encodings.h"
#include "wallet/session/wallet_session.h"
#include "wallet/store/app_binds.h"

namespace brickfall {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr int64_t kCoin = 60'000;  // satoshis
constexpr int kCoins = 2;
constexpr char kOldWallet[] = "orvane_pouch.json";
constexpr char kFriend[] = "friend";  // a name that an old registry holds besides

void Require(bool held, const std::string& what) {
    if (!held) throw SomethingLost(what);
}

// ---- What is read beside the product's own readers.

std::string FileText(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    Require(file.good(), "cannot read " + path.string());
    return {std::istreambuf_iterator<char>(file), {}};
}

json FileJson(const fs::path& path) {
    if (!fs::exists(path)) return json::object();
    json document = json::parse(FileText(path), nullptr, false);
    Require(document.is_object(), "half a file: " + path.string());
    return document;
}

std::string TextAt(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

json ListAt(const json& object, const char* key) { return object.value(key, json::array()); }

std::set<std::string> AllWords(const std::map<std::string, std::string>& words) {
    std::set<std::string> all;
    for (const auto& [path, phrase] : words) all.insert(phrase);
    return all;
}

}  // namespace

std::string KillsMoment::Text() const {
    std::string text = scene->name;
    if (kind != nullptr)
        text += std::string(" ") + kind->name + ' ' + std::to_string(at) + (on ? " on" : " once");
    return text;
}

// The files as they lie, each of them whole and for the user alone.
struct KillsTrial::Store {
    fs::path root;
    std::map<std::string, std::string> words;  // of each wallet file, by its place in the store
    std::set<std::string> listed;
    std::vector<fs::path> temporaries;

    explicit Store(const fs::path& folder) : root(folder / "data/Orvane") {
        for (const fs::path& place : {root, folder / "userinfo"}) {
            if (!fs::exists(place)) continue;
            for (const auto& entry : fs::recursive_directory_iterator(place)) Read(entry);
        }
        for (const json& entry : ListAt(Json("wallets.json"), "wallets")) listed.insert(TextAt(entry, "id"));
    }

    json Json(const std::string& name) const { return FileJson(root / name); }

  private:
    void Read(const fs::directory_entry& entry) {
        const fs::path& path = entry.path();
        const std::string name = path.filename().string();
        const fs::perms only =
            entry.is_directory() ? fs::perms::owner_all : fs::perms::owner_read | fs::perms::owner_write;
        Require((entry.status().permissions() & fs::perms::all) == only, "others may use " + path.string());
        if (entry.is_directory() || name == "wallets.lock") return;
        if (name.starts_with(".brickfall-")) return temporaries.push_back(path);
        if (name.starts_with("encpub-")) {
            const std::string text = FileText(path);
            return Require(text.size() > 67 && text[66] == '\n', "half a key: " + path.string());
        }
        const json document = FileJson(path);
        if (name != "wallet.json" && name != kOldWallet) return;
        const std::string phrase = TextAt(document, "mnemonic");
        Require(std::ranges::count(phrase, ' ') == 11, "no twelve words in " + path.string());
        words[path.lexically_relative(root).string()] = phrase;
    }
};

// Satoshis, as the chain holds them.
struct KillsTrial::Books {
    int64_t funded, fees, house, pot, watch, report_fee, oracle, own;
    std::size_t transactions;
};

KillsTrial::KillsTrial(sandbox::Sandbox& box, const KillsMoment& moment, int number)
    : box_(box), moment_(moment), scene_(*moment.scene), alias_("p" + std::to_string(number)) {
    SetUp();
}

KillsOutcome KillsTrial::Run() {
    const Store before(folder_.Path());
    const Books books = ReadBooks();
    const KillsOutcome first = Act("--act");
    CheckEnd(first);
    const std::string_view name = scene_.name;
    CheckStore(before, name == "connect" && first.exit == 0);
    // A new program opens what is left. Money may have come to a wallet that this program does not know
    // yet.
    const KillsOutcome second = Act("--judge");
    Require(second.exit == 0, "a new program ends with " + std::to_string(second.exit));
    Require(second.again && second.known.size() == 2, "a new program tells nothing");
    Require(second.again->empty(), "the act fails once all is well: " + *second.again);
    CheckWallet(second.known[0], /*is_done=*/false);
    CheckWallet(second.known[1], /*is_done=*/true);
    CheckStore(before, name != "unbind");
    Require(box_.Identity(alias_).has_value(), "the name is not published in the end");
    CheckMoney(books, first);
    CheckLeftovers();
    return first;
}

std::string KillsTrial::Met() const {
    const std::string path = folder_.Path() + "/met";
    std::string text = fs::exists(path) ? FileText(path) : "";
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

void KillsTrial::SetUp() {
    ::setenv("LOCALAPPDATA", (folder_.Path() + "/data").c_str(), 1);
    ClearWalletState();
    ResetBindingForTest();
    for (int i = 0; i < scene_.wallets; ++i) {
        do {
            wallet_id_ = CreateCompanionWallet(i + 1 == scene_.wallets ? alias_ : "x" + alias_);
        } while (wallet_id_.empty());  // two in one millisecond would have the same name
    }
    if (scene_.wallets > 0) LoadPlayer();
    if (scene_.has_name) box_.Publish({alias_, public_key_, address_, "", "", false, "", ""});
    for (int i = 0; scene_.has_coins && i < kCoins; ++i) box_.Fund(address_, kCoin);
    box_.Mine();
    if (scene_.is_old) MakeOld();
    if (scene_.wallets > 0) {
        const json score = {{"week", WeekStart(UnixSeconds())},
                            {"score", 200},
                            {"ts", UnixSeconds()},
                            {"paymail", alias_},
                            {"pay_addr", address_},
                            {"txid", std::string(64, '7')},
                            {"game", "brickfall"}};
        const json settings = {{"week_scores", json::array({score})}, {"others", "kept"}, {"music_vol", 40}};
        ReplaceFile(folder_.Path() + "/data/Orvane/brickfall_ui.json", settings.dump(2));
    }
    MakeFolders(folder_.Path() + "/userinfo");
    box_.AppointArchitect(folder_.Path() + "/userinfo");
}

void KillsTrial::LoadPlayer() {
    BindAtStart(kKillsInstance, "Brickfall");
    if (scene_.is_bound) {
        WriteBind(wallet_id_);
    } else {
        SetWalletId(wallet_id_);
    }
    Require(LoadWallet(), "the wallet to begin with does not load");
    address_ = wallet_keys.address;
    identity_ = wallet_keys.identity_address;
    public_key_ = wallet_keys.identity_pub;
    ClearWalletState();
    ResetBindingForTest();
}

void KillsTrial::MakeOld() {
    const fs::path root = fs::path(folder_.Path()) / "data/Orvane";
    fs::rename(root / "wallets" / wallet_id_ / "wallet.json", root / kOldWallet);
    for (const char* name : {"wallets", "wallets.json", "binds"}) fs::remove_all(root / name);
    const json names = {{"names", {{alias_, {{"pubkey", public_key_}}}, {kFriend, {{"pubkey", "02ad"}}}}},
                        {"self", alias_}};
    MakeFolders(folder_.Path() + "/userinfo");
    ReplaceFile(folder_.Path() + "/userinfo/orvane_paymail.json", names.dump());
}

KillsOutcome KillsTrial::Act(const char* mode) {
    const bool is_faulty = std::string_view(mode) == "--act";
    const auto set = [is_faulty](const char* name, const std::string& value) {
        is_faulty ? ::setenv(name, value.c_str(), 1) : ::unsetenv(name);
    };
    const std::string program = fs::read_symlink("/proc/self/exe").string();
    set("LD_PRELOAD", fs::path(program).parent_path() / "libfault_shim.so");
    set("BRICKFALL_FAULT_KIND", moment_.kind != nullptr ? moment_.kind->name : "");
    set("BRICKFALL_FAULT_AT", std::to_string(moment_.at));
    set("BRICKFALL_FAULT_ON", moment_.on ? "1" : "0");
    set("BRICKFALL_FAULT_LOG", folder_.Path() + "/met");
    ChildProcess child(program, {mode, scene_.name, alias_, folder_.Path()});
    ::unsetenv("LD_PRELOAD");
    KillsOutcome outcome;
    while (const auto text = child.ReadLine()) {
        const json line = json::parse(*text, nullptr, false);
        if (!line.is_object()) continue;
        if (line.contains("said")) outcome.said = TextAt(line, "said");
        if (line.contains("txid")) outcome.txid = TextAt(line, "txid");
        if (line.contains("again")) outcome.again = TextAt(line, "again");
        if (line.contains("known")) outcome.known.push_back(line["known"]);
        if (line.contains("counts")) outcome.counts = line["counts"].get<std::vector<uint64_t>>();
    }
    outcome.exit = child.Wait();
    box_.WaitUntilIdle();  // what a program has sent is dealt with though it was killed
    return outcome;
}

void KillsTrial::CheckEnd(const KillsOutcome& first) const {
    if (first.exit == -SIGALRM) throw SomethingLost("the program hangs");
    if (first.exit != 0) {
        // By an exception that nobody caught, or that main did.
        const bool in_order = first.exit == -SIGABRT || first.exit == 1;
        const bool may_end = moment_.Kills() ? first.exit == -SIGKILL : in_order && moment_.MayEnd();
        return Require(may_end, "the program ends with " + std::to_string(first.exit));
    }
    Require(first.said.has_value(), "the program says nothing");
    Require(first.said->empty() || first.again == "",
            "the same program cannot do it later: " + *first.said + "; then: " + first.again.value_or("-"));
}

void KillsTrial::CheckStore(const Store& before, bool is_bound) const {
    const Store now(folder_.Path());
    const std::set<std::string> had = AllWords(before.words), has = AllWords(now.words);
    Require(std::ranges::includes(has, had), "words are gone");
    Require(scene_.wallets == 0 || has == had, "words of nobody have come");
    Require(std::ranges::includes(now.listed, before.listed), "a wallet is not listed any more");
    for (const auto& [path, phrase] : before.words) {
        const auto found = now.words.find(path);
        Require(found != now.words.end() ? found->second == phrase : scene_.is_old,
                "words have changed places");
    }
    for (const std::string& id : now.listed) {
        Require(now.words.contains("wallets/" + id + "/wallet.json") || now.words.contains(kOldWallet),
                "a wallet is listed that is not there");
    }
    const std::string bound = TextAt(now.Json("binds/_opt_brickfall.json"), "wallet_id");
    Require(!is_bound || !bound.empty(), "the cabinet is bound, and its bind is not there");
    Require(bound.empty() || now.listed.contains(bound), "bound to a wallet that is not listed");
    Require(bound.empty() || before.listed.empty() || bound == wallet_id_, "bound to another wallet");

    const json settings = before.Json("brickfall_ui.json"), settings_now = now.Json("brickfall_ui.json");
    Require(TextAt(settings, "others") == TextAt(settings_now, "others"),
            "another program's setting is gone");
    const json scores = ListAt(settings_now, "week_scores");
    for (const json& score : ListAt(settings, "week_scores")) {
        Require(std::ranges::count(scores, score) == 1, "a score of this cabinet is gone");
    }

    const json names = now.Json("orvane_paymail.json").value("names", json::object());
    Require(!scene_.is_old || names.empty() || names.contains(kFriend), "a name of the old registry is gone");
    const auto published = box_.Identity(alias_);
    const std::string registered = names.contains(alias_) ? TextAt(names[alias_], "pubkey") : public_key_;
    if (public_key_.empty()) return;  // the wallet is not made yet
    Require(registered == public_key_, "the name is registered to another key");
    Require(!published || published->pubkey == public_key_, "the name is published for another key");
}

void KillsTrial::CheckWallet(const json& known, bool is_done) {
    const bool must_load =
        is_done ? scene_.name != std::string_view("unbind") : scene_.is_bound && scene_.wallets == 1;
    if (!known.value("loaded", false)) return Require(!must_load, "the wallet does not load");
    if (address_.empty()) {  // of the wallet that was made
        address_ = TextAt(known, "address");
        identity_ = TextAt(known, "identity");
        public_key_ = TextAt(known, "key");
    }
    Require(TextAt(known, "address") == address_, "another wallet is loaded");
    const int64_t balance = known.value("balance", int64_t{-2});
    if (!is_done) return Require(balance >= 0, "no balance is known");
    const int64_t held = box_.BalanceOf(address_);
    Require(balance == held,
            "the program shows " + std::to_string(balance) + ", the chain has " + std::to_string(held));
    const Store store(folder_.Path());
    const json face = store.Json("tx_hist/" + TextAt(known, "wallet") + "_face.json");
    Require(face.value("sats", int64_t{-1}) == held, "the balance kept is not the chain's");
    const json spent =
        store.Json("ord_snap/" + TextAt(known, "wallet") + "_spent.json").value("outpoints", json::array());
    for (const sandbox::ChainOutput& coin : box_.Unspent(address_)) {
        const json key = coin.txid + ":" + std::to_string(coin.vout);
        Require(std::ranges::count(spent, key) == 0, "a coin that is there counts as spent");
    }
}

KillsTrial::Books KillsTrial::ReadBooks() const {
    const auto of = [this](const std::string& address) {
        return address.empty() ? 0 : box_.BalanceOf(address);
    };
    return {box_.TotalFunded(),           box_.TotalFees(),
            of(kArcadeHouseAddress),      of(kArcadePotAddress),
            of(kArcadeWatchAddress),      of(kReportFeeAddress),
            of(kReportOracleAddress),     of(address_) + of(identity_),
            box_.RawTransactions().size()};
}

void KillsTrial::CheckMoney(const Books& then, const KillsOutcome& first) const {
    const Books now = ReadBooks();
    const int64_t house = now.house - then.house, pot = now.pot - then.pot, watch = now.watch - then.watch;
    const int64_t report_fee = now.report_fee - then.report_fee, oracle = now.oracle - then.oracle;
    const int64_t spent = house + pot + watch + report_fee + oracle + now.fees - then.fees;
    Require(then.own + now.funded - then.funded == now.own + spent, "satoshis are with nobody known");
    Require(now.funded == box_.TotalUnspent() + now.fees, "the chain's sums do not hold");

    const int64_t entries = house / kArcadeHouseSats;
    Require(house == entries * kArcadeHouseSats && pot == entries * kArcadePotSats, "half an entry is paid");
    Require(report_fee == oracle / kMarkerSats * kReportFeeSats, "half a report is paid");
    const int64_t paid = entries + watch / kMarkerSats + oracle / kMarkerSats;
    const int64_t kinds = (entries > 0) + (watch > 0) + (oracle > 0);
    Require(kinds == scene_.pays, "not what was to be paid for");
    // One success is the new program's, and one of the first program may be: that it was killed, or that
    // no memory was left to read an answer with, is all that may part what it says from what is on the
    // chain.
    const int64_t told = first.exit == 0 ? scene_.pays : 0;
    const int64_t untold = paid - scene_.pays - told;
    const bool may_differ = moment_.Kills() || (moment_.MayEnd() && (moment_.on || first.exit != 0));
    Require(untold == 0 || (untold == 1 && may_differ),
            std::to_string(paid) + " payments are on the chain; the program said \"" +
                first.said.value_or("-") + '"');
    const bool is_told = first.said == "" && scene_.pays > 0;
    Require(!is_told || box_.RawTransaction(first.txid), "a payment is told of that is not on the chain");
    if (watch > 0) CheckRows(then.transactions, paid);
}

void KillsTrial::CheckRows(std::size_t from, int64_t paid) const {
    const std::vector<std::string> all = box_.RawTransactions();
    const std::string mark = "{\"actor\":\"" + alias_ + "\"";
    const json scores = ListAt(Store(folder_.Path()).Json("brickfall_ui.json"), "week_scores");
    int64_t rows = 0;
    for (std::size_t i = from; i < all.size(); ++i) {
        const ByteBuffer raw = HexDecode(all[i]);
        const std::string text(raw.begin(), raw.end());
        const std::size_t at = text.find(mark);
        if (at == std::string::npos) continue;
        const json row = json::parse(text.substr(at, text.find('}', at) + 1 - at), nullptr, false);
        ++rows;
        const json score = row.value("score", json());
        const auto is_it = [&score](const json& listed) { return listed["score"] == score; };
        Require(TextAt(row, "pubkey") == public_key_, "a row of another key");
        Require(score > 0 && std::ranges::any_of(scores, is_it),
                "the row has a score that the cabinet has not");
    }
    Require(rows == paid, "not as many rows as payments for them");
}

void KillsTrial::CheckLeftovers() const {
    for (const fs::path& left : Store(folder_.Path()).temporaries) {
        const fs::path probe = left.parent_path() / "probe.json";
        Require(ReplaceFile(probe.string(), "{}"), "no file can be written beside a leftover");
        fs::remove(probe);
        Require(!fs::exists(left), "a dead program's file stays: " + left.string());
    }
}

}  // namespace brickfall
