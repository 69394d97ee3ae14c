#include "ErrorAnswer.h"

#include "Printable.h"

ApiAnswer errorAnswer(unsigned status, const std::string& code, const std::string& text) {
    ApiAnswer answer;
    answer.status = status;
    answer.body = "{\"error\":{\"code\":" + base::jsonText(code) + ",\"text\":" + base::jsonText(text) + "}}";
    return answer;
}
