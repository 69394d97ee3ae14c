// Who the page is to the host. On the machine itself the page keeps a token, since cookies know no ports; elsewhere
// the host keeps it in a cookie that no script sees. Which of the two the host decides: a name of the machine may lead
// to either.

const tokenName = "mfhost.token";

export const isLoopback = ["127.0.0.1", "localhost", "[::1]"].includes(location.hostname);

export function token() {
    return localStorage.getItem(tokenName);
}

export function headers() {
    const known = token();
    return known ? {Authorization: `Bearer ${known}`} : {};
}

/** What is wrong, or an empty text: then the session is open. */
export async function signIn(code) {
    let answer;
    try {
        answer = await fetch("/api/v1/session", {
            method: "POST",
            headers: {"Content-Type": "application/json"},
            body: JSON.stringify({code}),
        });
    } catch {
        return "The host does not answer.";
    }
    const body = await answer.json().catch(() => ({}));
    if (!answer.ok)
        return body.error?.text ?? `The host answered ${answer.status}.`;
    if (body.token)
        localStorage.setItem(tokenName, body.token);
    else
        forget();
    return "";
}

export function forget() {
    localStorage.removeItem(tokenName);
}

export async function signOut() {
    await fetch("/api/v1/session", {method: "DELETE", headers: headers()}).catch(() => {});
    forget();
}
