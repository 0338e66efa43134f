#include "model/operation.h"

namespace model {

const char* stepName(Step step) {
  switch (step) {
#define MODEL_STEP(name) \
  case Step::name:       \
    return #name;
    MODEL_STEPS(MODEL_STEP)
#undef MODEL_STEP
  }
  return "?";
}

}  // namespace model
