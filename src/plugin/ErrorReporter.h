#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Collects the messages of a preset or state load for the interface to show. A hostile file can
// produce a message per line, so only the first kMaximumMessages are kept; the rest are counted.
class ErrorReporter {
public:
    static constexpr std::size_t kMaximumMessages = 100;

    void report(std::string message) {
        if (messages.size() < kMaximumMessages)
            messages.push_back(std::move(message));
        else
            ++dropped;
    }

    bool empty() const { return messages.empty(); }
    const std::vector<std::string>& getMessages() const { return messages; }
    std::size_t getDroppedCount() const { return dropped; }
    // The messages one per line, as a dialog shows them.
    std::string getText() const {
        std::string text;
        for (const std::string& message : messages)
            text += message + "\n";
        return text;
    }

private:
    std::vector<std::string> messages;
    std::size_t dropped = 0;
};
