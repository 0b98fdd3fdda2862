// Fills the page from `failures`, which failures.js holds.
"use strict";

const kinds = ["new", "reference", "difference"];

function figure(failure) {
    const made = document.createElement("figure");
    made.className = "report";
    const caption = document.createElement("figcaption");
    const image = document.createElement("img");
    const show = kind => {
        image.src = failure[kind];
        image.alt = kind;
        caption.textContent = `${failure.name}: ${kind}`;
    };
    image.onpointermove = event => {
        const box = image.getBoundingClientRect();
        const third = Math.floor(3 * (event.clientX - box.left) / box.width);
        show(kinds[Math.min(Math.max(third, 0), 2)]);
    };
    show("new");
    made.append(image, caption);
    return made;
}

document.querySelector("div").append(...failures.map(figure));
