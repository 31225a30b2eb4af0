// The one place that knows which index stands for which function of the script engine.

#include "probe/script_engine.h"

#include "probe/vorta.h"

namespace {

template <typename FUNCTION>
void Bind(FUNCTION** ppFunction, uint32_t index) {
  *ppFunction = reinterpret_cast<FUNCTION*>(VORTA_GetpFunc(index));
}

}  // namespace

void SCRIPT_BindEngine(SCRIPT_ENGINE* pEngine) {
  Bind(&pEngine->pfCompileFile, SCRIPT_INDEX_COMPILE_FILE);
  Bind(&pEngine->pfLoadInstance, SCRIPT_INDEX_LOAD_INSTANCE);
  Bind(&pEngine->pfUnloadInstance, SCRIPT_INDEX_UNLOAD_INSTANCE);
  Bind(&pEngine->pfHasEntryPoint, SCRIPT_INDEX_HAS_ENTRY_POINT);
  Bind(&pEngine->pfExecuteFunction, SCRIPT_INDEX_EXECUTE_FUNCTION);
  Bind(&pEngine->pfRegisterKeyValue, SCRIPT_INDEX_REGISTER_KEY_VALUE);
}
