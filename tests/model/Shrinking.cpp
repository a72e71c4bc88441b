#include "tests/model/Shrinking.h"

#include <algorithm>
#include <utility>

namespace com_tesk::test {

namespace {

class Shrinking {
  public:
    Shrinking(Life& failingLife, const std::function<bool(const Life&)>& failing, std::chrono::milliseconds time)
        : life(failingLife), fails(failing), deadline(std::chrono::steady_clock::now() + time) {}

    void shrink() {
        bool helped = true;
        while (helped && !isOver()) {
            helped = false;
            for (std::size_t run = std::max<std::size_t>(life.steps.size() / 2, 1); run > 0; run /= 2) {
                helped = dropRuns(run) || helped;
            }
            helped = dropRecords() || helped;
        }
    }

  private:
    bool isOver() const { return std::chrono::steady_clock::now() >= deadline; }

    bool accept(Life&& candidate) {
        if (isOver() || !fails(candidate)) {
            return false;
        }
        life = std::move(candidate);
        return true;
    }

    /// Backwards: what comes last depends on what comes first, seldom the other way round.
    bool dropRuns(std::size_t run) {
        bool helped = false;
        std::size_t end = life.steps.size();
        while (end > 0 && !isOver()) {
            const std::size_t begin = end > run ? end - run : 0;
            Life candidate = life;
            candidate.steps.erase(candidate.steps.begin() + static_cast<std::ptrdiff_t>(begin),
                                  candidate.steps.begin() + static_cast<std::ptrdiff_t>(end));
            helped = accept(std::move(candidate)) || helped;
            end = std::min(begin, life.steps.size());
        }
        return helped;
    }

    bool dropRecords() {
        bool helped = false;
        for (std::size_t i = 0; i < life.steps.size() && !isOver(); ++i) {
            const auto theStep = [i](Life& of) -> Step& { return of.steps[i]; };
            helped = dropFrom([&theStep](Life & of) -> auto& { return theStep(of).records; }) || helped;
            if (life.steps[i].inside.size() > 1) {
                helped = dropFrom([&theStep](Life & of) -> auto& { return theStep(of).inside; }) || helped;
            }
            for (std::size_t j = 0; j < life.steps[i].inside.size(); ++j) {
                helped =
                    dropFrom([&theStep, j ](Life & of) -> auto& { return theStep(of).inside[j].records; }) || helped;
            }
        }
        return helped;
    }

    /// Drops single elements of the vector that `in` finds in a life.
    template <typename In>
    bool dropFrom(const In& in) {
        bool helped = false;
        for (std::size_t j = in(life).size(); j-- > 0;) {
            Life candidate = life;
            in(candidate).erase(in(candidate).begin() + static_cast<std::ptrdiff_t>(j));
            helped = accept(std::move(candidate)) || helped;
        }
        return helped;
    }

    Life& life;
    const std::function<bool(const Life&)>& fails;
    const std::chrono::steady_clock::time_point deadline;
};

}  // namespace

Life shrunk(Life life, const std::function<bool(const Life&)>& fails, std::chrono::milliseconds time) {
    Shrinking(life, fails, time).shrink();
    return life;
}

}  // namespace com_tesk::test
