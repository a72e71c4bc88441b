#include "tests/memory/Operations.h"

namespace com_tesk::test {

namespace {

constexpr unsigned int kSilent = CSClient::OPTION_SILENT;

void connect(Scene& scene) {
    scene.connect();
}

void connectWithAll(Scene& scene) {
    scene.connect();
    scene.registerInputs(3);
    scene.registerOutputs(3);
    scene.receive(inputsConfirmed(scene, 2));
    scene.receive(outputsConfirmed(scene, 2));
}

void connectWithSecond(Scene& scene) {
    scene.connect();
    scene.engine.registerInputParameters(&scene.inputs[1], 1);
    scene.engine.registerOutputParameters(&scene.outputs[1], 1);
}

bool registerThreeInputs(Scene& scene) {
    return scene.engine.registerInputParameters(scene.inputs.data(), 3) == 0;
}

bool registerThreeOutputs(Scene& scene) {
    return scene.engine.registerOutputParameters(scene.outputs.data(), 3) == 0;
}

/// Those before the one that memory did not suffice for stay.
bool leaveInputs(Scene& scene, unsigned int number) {
    if (number > 3) {
        return false;
    }
    scene.engine.registerInputParameters(scene.inputs.data(), number);
    return true;
}

bool leaveOutputs(Scene& scene, unsigned int number) {
    if (number > 3) {
        return false;
    }
    scene.engine.registerOutputParameters(scene.outputs.data(), number);
    return true;
}

bool leaveFirstInput(Scene& scene, unsigned int number) {
    scene.engine.registerInputParameters(scene.inputs.data(), 1);
    return number == 0;
}

bool leaveFirstOutput(Scene& scene, unsigned int number) {
    scene.engine.registerOutputParameters(scene.outputs.data(), 1);
    return number == 0;
}

void forgetInputs(Scene& scene) {
    scene.engine.unregisterInputParameters(scene.names);
}

void forgetOutputs(Scene& scene) {
    scene.engine.unregisterOutputParameters(scene.names);
}

void forgetFirst(Scene& scene) {
    scene.engine.unregisterInputParameters({scene.names[0]});
    scene.engine.unregisterOutputParameters({scene.names[0]});
}

}  // namespace

std::vector<Operation> parameterOperations() {
    return {
        {"RegisteringInputs", Operation::MEMORY, kNoOptions, connect, registerThreeInputs, leaveInputs, forgetInputs},
        {"RegisteringOutputs", Operation::MEMORY, kNoOptions, connect, registerThreeOutputs, leaveOutputs,
         forgetOutputs},
        {"RegisteringInputsBeforeConnecting", Operation::MEMORY, kSilent, [](Scene&) {}, registerThreeInputs,
         leaveInputs, forgetInputs},
        {"RegisteringOutputsBeforeConnecting", Operation::MEMORY, kSilent, [](Scene&) {}, registerThreeOutputs,
         leaveOutputs, forgetOutputs},
        {"RegisteringInputsOfWhichTheSecondIsRefused", Operation::MEMORY, kNoOptions, connectWithSecond,
         registerThreeInputs, leaveFirstInput, forgetFirst},
        {"RegisteringOutputsOfWhichTheSecondIsRefused", Operation::MEMORY, kNoOptions, connectWithSecond,
         registerThreeOutputs, leaveFirstOutput, forgetFirst},
        {"UnregisteringInputs", Operation::MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) { return scene.engine.unregisterInputParameters(scene.names) == 0; }, nullptr, nullptr},
        {"UnregisteringOutputs", Operation::MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) { return scene.engine.unregisterOutputParameters(scene.names) == 0; }, nullptr, nullptr},
        {"UnregisteringAllInputs", Operation::MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) {
             scene.engine.unregisterAllInputParameters();
             return true;
         },
         nullptr, nullptr},
        {"UnregisteringAllOutputs", Operation::MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) {
             scene.engine.unregisterAllOutputParameters();
             return true;
         },
         nullptr, nullptr},
        {"Publishing", Operation::MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) {
             return scene.engine.publishParameters(scene.parameters.data(), 3, CSClientProtocol::PUBLISH_DEFAULT) == 0;
         },
         nullptr, nullptr},
        {"PublishingWhatIsUnknown", Operation::MEMORY, kNoOptions, connectWithSecond,
         [](Scene& scene) {
             return scene.engine.publishParameters(&scene.parameters[1], 2, CSClientProtocol::PUBLISH_DEFAULT) == 0;
         },
         nullptr, nullptr},
        {"ReregisteringInputs", Operation::MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) {
             scene.engine.reregisterAllInputParameters();
             return true;
         },
         nullptr, nullptr},
        {"ReregisteringOutputs", Operation::MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) {
             scene.engine.reregisterAllOutputParameters();
             return true;
         },
         nullptr, nullptr},
        {"ForgettingEverything", Operation::NO_MEMORY, kNoOptions, connectWithAll,
         [](Scene& scene) {
             scene.engine.unregisterAllLocalParameters();
             return true;
         },
         nullptr, nullptr},
    };
}

}  // namespace com_tesk::test
