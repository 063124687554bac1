// The request word that the optimisers and the inversion loop exchange: 60 characters, padded with spaces. Plain data,
// so that it can be saved and reloaded between any two calls.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace voxlith {

struct TaskWord {
    char text[60];
};

// Stores `text`, padded with spaces; characters beyond 60 are dropped.
inline void setTask(TaskWord& task, std::string_view text) {
    const std::size_t length = std::min(text.size(), sizeof task.text);
    std::copy_n(text.begin(), length, task.text);
    std::fill(task.text + length, task.text + sizeof task.text, ' ');
}

// The word without its trailing spaces. The view is valid as long as `task` is.
inline std::string_view taskText(const TaskWord& task) {
    std::size_t length = sizeof task.text;
    while (length > 0 && task.text[length - 1] == ' ') {
        --length;
    }
    return {task.text, length};
}

// True if the word begins with `start`, trailing spaces of `start` included.
inline bool taskBegins(const TaskWord& task, std::string_view start) {
    return std::string_view(task.text, sizeof task.text).starts_with(start);
}

// True if the word is `text`; trailing spaces on either side are ignored.
inline bool taskIs(const TaskWord& task, std::string_view text) {
    while (text.ends_with(' ')) {
        text.remove_suffix(1);
    }
    return taskText(task) == text;
}

}  // namespace voxlith
