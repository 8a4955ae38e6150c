// Seeded random inputs for the converter tests: JSON values built from a vocabulary of member
// names and texts, single-node JSON mutations, and damaged or random XML text. Seeds are fixed by
// the callers so that a failure replays.
#pragma once

#include <json/value.h>

#include <random>
#include <string>
#include <vector>

namespace korva::fuzz {

class Generator {
  public:
    Generator(unsigned seed, std::vector<std::string> names, std::vector<std::string> texts)
        : m_random(seed), m_names(std::move(names)), m_texts(std::move(texts)) {}

    size_t below(size_t n) { return m_random() % n; }
    const std::string& name() { return m_names[below(m_names.size())]; }
    const std::string& text() { return m_texts[below(m_texts.size())]; }

    // Scalars of every JSON type (including values past 32 bits and non-integral reals), and
    // below depth arrays and objects keyed by the vocabulary.
    Json::Value value(int depth) {
        static const double kReals[] = {44.1, -0.5, 1e300, 2147483647.5};
        switch (below(depth > 0 ? 10 : 7)) {
            case 0: return Json::Value();
            case 1: return Json::Value(below(2) == 0);
            case 2: return Json::Value(static_cast<int>(below(2000)) - 1000);
            case 3: return Json::Value(Json::UInt64(1) << (31 + below(33)));
            case 4: return Json::Value(kReals[below(4)]);
            case 5: return Json::Value(text());
            case 6: return Json::Value(name());
            case 7: {
                Json::Value array(Json::arrayValue);
                for (size_t i = below(4); i > 0; --i) array.append(value(depth - 1));
                return array;
            }
            default: {
                Json::Value object(Json::objectValue);
                for (size_t i = below(5); i > 0; --i) object[name()] = value(depth - 1);
                return object;
            }
        }
    }

    // Replaces one node of root (possibly root itself), removes a member or adds one.
    void mutate(Json::Value* root) {
        std::vector<Json::Value*> nodes;
        collect(root, &nodes);
        Json::Value* node = nodes[below(nodes.size())];
        if (node->isObject() && below(2) == 0) {
            const auto names = node->getMemberNames();
            if (!names.empty() && below(2) == 0) {
                node->removeMember(names[below(names.size())]);
            } else {
                (*node)[name()] = value(2);
            }
            return;
        }
        *node = value(2);
    }

    // One to three cuts, copies, markup insertions or byte changes.
    std::string damage(std::string text) {
        static const char* const kTokens[] = {"<", ">", "</", "/>", "&amp;", "&", "<!--",
                                              "<![CDATA[", "\"", "<x y='1'>", "]]>"};
        for (size_t ops = 1 + below(3); ops > 0 && !text.empty(); --ops) {
            const size_t at = below(text.size());
            const size_t length = 1 + below(std::min<size_t>(80, text.size() - at));
            switch (below(4)) {
                case 0: text.erase(at, length); break;
                case 1: text.insert(below(text.size() + 1), text.substr(at, length)); break;
                case 2: text.insert(at, kTokens[below(std::size(kTokens))]); break;
                default: text[at] = static_cast<char>(below(256)); break;
            }
        }
        return text;
    }

    // A random well-formed element tree over the vocabulary.
    std::string element(int depth) {
        const std::string tag = name();
        std::string xml = "<" + tag + ">";
        if (depth > 0 && below(2) == 0) {
            for (size_t i = below(5); i > 0; --i) xml += element(depth - 1);
        } else {
            xml += text();
        }
        return xml + "</" + tag + ">";
    }

  private:
    static void collect(Json::Value* value, std::vector<Json::Value*>* nodes) {
        nodes->push_back(value);
        if (value->isObject()) {
            for (const std::string& member : value->getMemberNames()) {
                collect(&(*value)[member], nodes);
            }
        } else if (value->isArray()) {
            for (Json::ArrayIndex i = 0; i < value->size(); ++i) collect(&(*value)[i], nodes);
        }
    }

    std::mt19937 m_random;
    std::vector<std::string> m_names;
    std::vector<std::string> m_texts;
};

}  // namespace korva::fuzz
