// Gives every kernel table the name of the CPU target that its file is being compiled for.
#pragma once

#define KT7_JOIN2(name, target) name##_##target
#define KT7_JOIN(name, target) KT7_JOIN2(name, target)
#define KT7_NAME(name) KT7_JOIN(name, KT7_TARGET)
