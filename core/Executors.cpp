#include "core/Executors.h"

#include <exception>

namespace velmo::core {

void startTask(const Executor& executor, asio::awaitable<void> task, CustomLogger logger) {
  asio::co_spawn(executor, std::move(task),
                 [logger = std::move(logger)](const std::exception_ptr& failure) {
                   if (!failure) return;
                   try {
                     std::rethrow_exception(failure);
                   } catch (const std::exception& error) {
                     logger.error(std::string("Task ended with an exception: ") + error.what());
                   } catch (...) {
                     logger.error("Task ended with an unknown exception");
                   }
                 });
}

}  // namespace velmo::core
