#include "QueueTable.h"

#include "Table.h"

void printQueues(const std::vector<JsonView>& queues, const Screen& screen) {
    using Cell = base::Table::Cell;
    base::Table table({"queue", "depth", "capacity", "highest", "messages", "bytes", "waits", "waiting",
                       "holders", "receiver"});
    for (const JsonView& queue : queues) {
        const std::int64_t waiting = queue.number("waitingForMs");
        table.addRow(
            {queue.text("name"), queue.text("depth"), queue.text("capacity"), queue.text("highWater"),
             queue.text("messages"), queue.text("bytes"), queue.text("waits"),
             waiting > 0 ? Cell(std::to_string(waiting) + " ms", base::Table::EColour::Warning) : "-",
             queue.text("holders"), queue.flag("receiver") ? "yes" : "no"});
    }
    table.print(screen.out, screen.look);
}
